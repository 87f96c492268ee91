#include "pkcs11/drivers/atrust/AcosTRUSTObjects.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/atrust/AcosTRUSTMechanisms.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/token/BERCoder.h"

namespace PKCS11 {

namespace {

/// Label and ID of keys and certificate.
constexpr char kName[] = "DF_DEC";

} // namespace

template <class Base>
AcosTRUSTKey<Base>::AcosTRUSTKey(AcosTRUSTToken& token, unsigned short fid) : m_token(token), m_fid(fid)
{
    Base::setLabel(Blob(kName));
    Base::setID(Blob(kName));
    Base::setPublicExponent(acosPublicExponent());
}

template <class Base>
Blob AcosTRUSTKey<Base>::getModulus()
{
    // What a caller has set stays.
    const Blob own = Base::getModulus();
    return own.empty() ? m_token.getModulus() : own;
}

template class AcosTRUSTKey<CardPublicKey>;
template class AcosTRUSTKey<CardPrivateKey>;

std::unique_ptr<Mechanism> AcosTRUSTPublicKey::createEncryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                      MechanismInfo* /*info*/)
{
    return std::make_unique<ATRUSTMechanismEncrypt>(m_token, m_fid, m_token.knownModulus().size());
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
