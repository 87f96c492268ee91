#include "pkcs11/drivers/piv/PIVJavaPublicKey.h"

#include "pkcs11/drivers/piv/PIVContainers.h"
#include "pkcs11/drivers/piv/PIVJavaMechanisms.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"

namespace PKCS11 {

PIVJavaPublicKey::PIVJavaPublicKey(PIVJavaToken& token, unsigned short word) : m_token(token), m_word(word)
{
    PIVJavaPublicKey::setLabel(token.getKeyLabel(word));
    PIVJavaPublicKey::setID(getKeyID(word));
    PIVJavaPublicKey::setEncrypt(CK_FALSE);
    PIVJavaPublicKey::setVerify(CK_FALSE);
}

std::unique_ptr<Mechanism> PIVJavaPublicKey::createVerifyMechanism(CK_MECHANISM* /*mechanism*/,
                                                                   MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismVerify>();
}

std::unique_ptr<Mechanism> PIVJavaPublicKey::createEncryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                    MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismEncrypt>(m_token);
}

} // namespace PKCS11
