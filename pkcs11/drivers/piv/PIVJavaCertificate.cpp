#include "pkcs11/drivers/piv/PIVJavaCertificate.h"

#include "pkcs11/drivers/piv/PIVContainers.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"

namespace PKCS11 {

PIVJavaCertificate::PIVJavaCertificate(PIVJavaToken& token, unsigned short word)
{
    // The algorithm identifier, not the container's tag, is looked up: every certificate is a "User
    // Certificate".
    PIVJavaCertificate::setLabel(token.getCertLabel(static_cast<unsigned char>(word & 0xFF)));
    PIVJavaCertificate::setID(getKeyID(word));
}

} // namespace PKCS11
