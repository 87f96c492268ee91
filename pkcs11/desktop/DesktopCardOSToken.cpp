#include "pkcs11/desktop/DesktopCardOSToken.h"

namespace PKCS11 {

void DesktopCardOSToken::initMechanismList()
{
    CardOSToken::initMechanismList();
    const CK_MECHANISM_INFO raw = mechanisms().getMechanism(CKM_RSA_X_509)->getInfo();
    mechanisms().add({CKM_RSA_PKCS_PSS, raw.ulMaxKeySize, raw.ulMinKeySize, CKF_HW | CKF_SIGN});
}

} // namespace PKCS11
