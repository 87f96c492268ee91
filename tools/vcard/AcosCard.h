#pragma once

#include "tools/vcard/FileSystem.h"
#include "tools/vcard/IsoCard.h"
#include "tools/vcard/Keys.h"
#include "tools/vcard/Pin.h"

#include <map>
#include <optional>
#include <string>

namespace vcard {

/// An ACOS card: a file system, PINs as blocks of 8 bytes, and RSA keys that a security environment chooses.
/// The card builds and removes the PKCS#1 padding itself. PINs and keys belong to the application: it must be
/// selected, and who leaves it has shown no PIN. Private keys want the user PIN.
class AcosCard : public IsoCard {
protected:
    using IsoCard::IsoCard;

    Response process(const Command& command) override;
    void onReset() override;
    /// Whether a PIN may become this block.
    virtual bool isNewPin(const Bytes& block) const = 0;

    /// A PIN under its reference; `p1` is what VERIFY and CHANGE REFERENCE DATA must carry for it.
    void addPin(unsigned char reference, unsigned char p1, Bytes block);
    /// A key under its reference, guarded by the PIN under another.
    void addKey(unsigned char reference, const RsaKey& key, unsigned char pin);

    FileSystem m_files;
    File* m_application = nullptr;
    /// Class byte of CHANGE REFERENCE DATA.
    unsigned char m_changeClass = 0x00;
    bool m_hasPublicOperation = false;

private:
    struct PinEntry {
        unsigned char p1;
        Pin pin;
    };
    struct KeyEntry {
        const RsaKey* key;
        unsigned char pin;
    };
    struct Environment {
        unsigned char use;       ///< A4 authentication, B8 confidentiality
        unsigned char reference; ///< the key's
        bool isPrivate;          ///< tag 84, not 83
    };

    bool isInApplication() const { return &m_files.currentDF() == m_application; }
    void forgetPins();
    Response select(const Command& command);
    Response verify(const Command& command);
    Response change(const Command& command);
    Response setEnvironment(const Command& command);
    Response internalAuthenticate(const Command& command);
    Response decipher(const Command& command);
    Response encipher(const Command& command);
    /// The private key of the environment, or the reason why it cannot be used.
    Response privateKey(unsigned char use, const RsaKey*& key);

    std::map<unsigned char, PinEntry> m_pins;
    std::map<unsigned char, KeyEntry> m_keys;
    std::optional<Environment> m_environment;
};

/// The signature card in its decryption application: key 88, PIN 81 padded with zeros.
class AcosTrustCard final : public AcosCard {
public:
    explicit AcosTrustCard(const std::string& pin, bool withCertificate = true);

private:
    bool isNewPin(const Bytes& block) const override;
    Response process(const Command& command) override;
};

/// The education card: keys 81 and 82 with the PINs 83 and 84, and the SO PINs 85 and 86, all of them blocks
/// of digits.
class AcosEduCard final : public AcosCard {
public:
    explicit AcosEduCard(const std::string& pin);

private:
    bool isNewPin(const Bytes& block) const override;
};

} // namespace vcard
