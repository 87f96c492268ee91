#pragma once

#include "tools/vcard/FileSystem.h"
#include "tools/vcard/IsoCard.h"
#include "tools/vcard/Keys.h"
#include "tools/vcard/Pin.h"

#include <array>
#include <optional>
#include <string>

namespace vcard {

struct IasOptions {
    int rsaBits = 2048;
    std::string pin = "123456"; ///< four to eight digits
    std::string puk = "87654321";
};

/// An IAS-ECC card with a PKCS#15 application (ISO/IEC 7816-15). There are a key that signs and deciphers
/// (reference 81), a key for signatures only (82), their public keys and certificates, a public and a private
/// data object.
///
/// PINs are eight characters, FF filling up what a PIN lacks; the PUK (82) unblocks the PIN (81). Private
/// keys want the PIN and a security environment set since the application was selected. The card pads and
/// unpads itself (PKCS#1 v1.5); what is signed must be a DigestInfo.
class IasCard final : public IsoCard {
public:
    explicit IasCard(const IasOptions& options = {});

    /// A file anywhere on the card, for tests that change what it holds.
    File& file(unsigned short id);
    /// Of keys 81 and 82.
    const RsaKey& key(size_t number) const { return *m_keys.at(number); }
    const Bytes& certificate(size_t number) const { return m_certificates.at(number); }

private:
    struct Environment {
        unsigned char use = 0; ///< A4 authentication, B8 confidentiality
        unsigned char key = 0;
    };

    Response process(const Command& command) override;
    void onReset() override;

    void addFiles(const IasOptions& options);
    Response select(const Command& command);
    Response usePin(const Command& command);
    Response getData(const Command& command) const;
    Response setEnvironment(const Command& command);
    /// 9000 when the environment's key may be used so now, else the reason why not.
    unsigned short mayUseKey(unsigned char use) const;
    Response internalAuthenticate(const Command& command) const;
    Response decipher(const Command& command) const;

    std::array<const RsaKey*, 2> m_keys;
    std::array<Bytes, 2> m_certificates;
    FileSystem m_files;
    File* m_application = nullptr;
    Pin m_pin;
    Pin m_puk;
    std::optional<Environment> m_environment;
};

} // namespace vcard
