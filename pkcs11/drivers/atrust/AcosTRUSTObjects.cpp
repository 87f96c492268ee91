#include "pkcs11/drivers/atrust/AcosTRUSTObjects.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/atrust/AcosTRUSTMechanisms.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/token/BERCoder.h"

namespace PKCS11 {

namespace {

/// Label and ID of keys and certificate.
constexpr char kName[] = "DF_DEC";
constexpr unsigned char kPublicExponent[] = {0x01, 0x00, 0x01};

Blob publicExponent()
{
    return {std::begin(kPublicExponent), std::end(kPublicExponent)};
}

} // namespace

AcosTRUSTPublicKey::AcosTRUSTPublicKey(AcosTRUSTToken& token, unsigned short fid) : m_token(token), m_fid(fid)
{
    setLabel(Blob(kName));
    setID(Blob(kName));
    setPublicExponent(publicExponent());
}

Blob AcosTRUSTPublicKey::getModulus()
{
    // What a caller has set stays.
    const Blob own = CardPublicKey::getModulus();
    return own.empty() ? m_token.getModulus() : own;
}

std::unique_ptr<Mechanism> AcosTRUSTPublicKey::createEncryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                      MechanismInfo* /*info*/)
{
    return std::make_unique<ATRUSTMechanismEncrypt>(m_token, m_fid, m_token.knownModulus().size());
}

AcosTRUSTPrivateKey::AcosTRUSTPrivateKey(AcosTRUSTToken& token, unsigned short fid)
    : m_token(token), m_fid(fid)
{
    setLabel(Blob(kName));
    setID(Blob(kName));
    setPublicExponent(publicExponent());
}

Blob AcosTRUSTPrivateKey::getModulus()
{
    // What a caller has set stays.
    const Blob own = CardPrivateKey::getModulus();
    return own.empty() ? m_token.getModulus() : own;
}

std::unique_ptr<Mechanism> AcosTRUSTPrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                    MechanismInfo* /*info*/)
{
    return std::make_unique<AcosTRUSTMechanismSign>(m_token, m_token.knownModulus().size());
}

std::unique_ptr<Mechanism> AcosTRUSTPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                       MechanismInfo* /*info*/)
{
    return std::make_unique<AcosTRUSTMechanismDecrypt>(m_token, m_fid, mechanism->mechanism);
}

AcosTRUSTCertificate::AcosTRUSTCertificate(AcosTRUSTToken& token, unsigned short fid)
    : m_token(token), m_fid(fid)
{
    setLabel(Blob(kName));
    setID(Blob(kName));
}

CardValue AcosTRUSTCertificate::readValue()
{
    const CardValue file = m_token.readFile(m_fid);
    CardValue certificate;
    certificate.isWhole = file.isWhole;
    try {
        BERCoder coder;
        coder.import(file.bytes, 0);
        coder.Export(certificate.bytes);
    } catch (const PKCS11Exception&) {
        certificate.bytes.clear();
    }
    return certificate;
}

AcosTRUSTData::AcosTRUSTData(AcosTRUSTToken& token, unsigned short fid, const Blob& value)
    : m_token(token), m_fid(fid)
{
    setLabel(AcosTRUSTToken::GetDataLabel(fid));
    setValue(value);
}

CardValue AcosTRUSTData::readValue()
{
    return m_token.readFile(m_fid);
}

} // namespace PKCS11
