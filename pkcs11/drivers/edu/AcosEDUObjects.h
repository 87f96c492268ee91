/// The objects of an education card. The token owns them.
#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class AcosEDUToken;

/// Key pair 1 or 2; both keys read the modulus from the key file that is selected when they are constructed.
class AcosEDUPublicKey final : public CardPublicKey {
public:
    AcosEDUPublicKey(AcosEDUToken& token, int number);
};

class AcosEDUPrivateKey final : public CardPrivateKey {
public:
    AcosEDUPrivateKey(AcosEDUToken& token, int number);

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

private:
    AcosEDUToken& m_token;
    int m_number;
};

/// The file that is selected at construction; its content is the value as it stands.
class AcosEDUCertificate final : public CardCertificate {
public:
    explicit AcosEDUCertificate(AcosEDUToken& token);
};

/// All data objects carry the content of file 0005, whatever file stands for them.
class AcosEDUData final : public CardData {
public:
    explicit AcosEDUData(AcosEDUToken& token);
};

/// The modulus in a key file: the first INTEGER or string of a file that is one TLV, else the content without
/// trailing zeros.
Blob modulusOfKeyFile(const Blob& content);

} // namespace PKCS11
