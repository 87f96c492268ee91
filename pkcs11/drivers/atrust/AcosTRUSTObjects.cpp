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
    if (CardPublicKey::getModulus().empty())
        setModulus(m_token.getModulus());
    return CardPublicKey::getModulus();
}

std::unique_ptr<Mechanism> AcosTRUSTPublicKey::createEncryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                      MechanismInfo* /*info*/)
{
    return std::make_unique<ATRUSTMechanismEncrypt>(m_token, m_fid);
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
    if (CardPrivateKey::getModulus().empty())
        setModulus(m_token.getModulus());
    return CardPrivateKey::getModulus();
}

std::unique_ptr<Mechanism> AcosTRUSTPrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                    MechanismInfo* /*info*/)
{
    return std::make_unique<AcosTRUSTMechanismSign>(m_token);
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

Blob AcosTRUSTCertificate::readValue()
{
    m_token.SelectDF_DECAppl();
    const Blob content = m_token.ReadBinary(m_fid);
    Blob certificate;
    try {
        BERCoder coder;
        coder.import(content, 0);
        coder.Export(certificate);
    } catch (const PKCS11Exception&) {
        certificate.clear();
    }
    return certificate;
}

AcosTRUSTData::AcosTRUSTData(AcosTRUSTToken& token, unsigned short fid, const Blob& value)
    : m_token(token), m_fid(fid)
{
    setLabel(AcosTRUSTToken::GetDataLabel(fid));
    setValue(value);
}

Blob AcosTRUSTData::readValue()
{
    m_token.SelectDF_DECAppl();
    return m_token.ReadBinary(m_fid);
}

} // namespace PKCS11
