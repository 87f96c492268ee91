#include "pkcs11/drivers/cardos/CardOSCertificate.h"

#include "pkcs11/drivers/cardos/CardOSToken.h"

namespace PKCS11 {

CardOSCertificate::CardOSCertificate(CardOSToken& token, int index) : m_token(token), m_index(index)
{
    const CertificateInfo info(token.readAttributeFile(index));
    CardOSCertificate::setLabel(info.getLabel());
    CardOSCertificate::setID(info.getID());
}

CardValue CardOSCertificate::readValue()
{
    return m_token.readValueFile(m_index);
}

} // namespace PKCS11
