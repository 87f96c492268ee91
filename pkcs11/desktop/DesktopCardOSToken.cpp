#include "pkcs11/desktop/DesktopCardOSToken.h"
#include "pkcs11/desktop/HostDigest.h"

namespace PKCS11 {

void DesktopCardOSToken::initMechanismList()
{
    CardOSToken::initMechanismList();
    const CK_MECHANISM_INFO raw = mechanisms().getMechanism(CKM_RSA_X_509)->getInfo();
    mechanisms().add({CKM_RSA_PKCS_PSS, raw.ulMaxKeySize, raw.ulMinKeySize, CKF_HW | CKF_SIGN});
    addHostDigests(mechanisms());
}

std::unique_ptr<Mechanism> DesktopCardOSToken::createMechanismDigest(CK_MECHANISM* mechanism)
{
    return createHostDigest(mechanism->mechanism);
}

} // namespace PKCS11
