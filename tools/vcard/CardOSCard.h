#pragma once

#include "tools/vcard/FileSystem.h"
#include "tools/vcard/IsoCard.h"
#include "tools/vcard/Keys.h"
#include "tools/vcard/Pin.h"

#include <map>
#include <string>

namespace vcard {

struct CardOSOptions {
    bool isV50 = false; ///< V5.0; V4.3b otherwise
    int rsaBits = 0;    ///< 0: 1024 for V4.3b, which cannot load a longer public key; 2048 for V5.0
    std::string pin = "123456";
    std::string soPin = "12345678";
};

/// A CardOS card in an issuer's file layout: an application with DF 2001, in it a directory of objects (EF
/// 0001), the token's attributes (EF 0002), an attribute file for each object, and the values; the key pair
/// has a DF. There is a private key, its public key, its certificate and a data object, with a gap before the
/// last. The PINs belong to the application: 81 the user's, 82 the administrator's.
///
/// The private key wants the user PIN and a security environment that was set since its DF became the current
/// one. V4.3b computes with public keys only after they were put into its key store, in the administration
/// phase.
class CardOSCard final : public IsoCard {
public:
    explicit CardOSCard(const CardOSOptions& options = {});

    /// A file of DF 2001, for tests that change what the card holds.
    File& file(unsigned short id);
    const RsaKey& key() const { return m_key; }
    const Bytes& certificate() const { return m_certificate; }

private:
    /// A public key of the key store while its objects come in.
    struct StoredKey {
        Bytes modulus;
        Bytes exponent;
    };
    struct Environment {
        bool restored = false;
        unsigned char operations = 0; ///< P1 of MANAGE SECURITY ENVIRONMENT
        unsigned char use = 0;        ///< B6 signature, B8 confidentiality
        unsigned char key = 0;
    };

    Response process(const Command& command) override;
    void onReset() override;

    void addFiles();
    Response select(const Command& command);
    Response getData(const Command& command) const;
    Response verifyOrChange(const Command& command);
    Response readPublicPart(const Command& command) const;
    Response manageEnvironment(const Command& command);
    Response putData(const Command& command);
    Response decipher(const Command& command) const;
    Response encipher(const Command& command) const;
    bool isInside(const File& df) const;

    bool m_isV50;
    const RsaKey& m_key;
    Bytes m_certificate;
    FileSystem m_files;
    File& m_application;
    File& m_driverDF;
    File& m_keyDF;
    Pin m_userPin;
    Pin m_soPin;
    Environment m_environment;
    bool m_administration = false;
    std::map<unsigned char, StoredKey> m_store;
};

} // namespace vcard
