#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"

#include "pkcs11/drivers/piv/PIVContainers.h"
#include "pkcs11/drivers/piv/PIVJavaMechanisms.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"

namespace PKCS11 {

PIVJavaPrivateKey::PIVJavaPrivateKey(PIVJavaToken& token, unsigned short word) : m_token(token), m_word(word)
{
    PIVJavaPrivateKey::setLabel(token.getKeyLabel(word));
    PIVJavaPrivateKey::setID(getKeyID(word));
}

std::unique_ptr<Mechanism> PIVJavaPrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                  MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismSign>(*this);
}

std::unique_ptr<Mechanism> PIVJavaPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                     MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismDecrypt>(*this, mechanism->mechanism);
}

} // namespace PKCS11
