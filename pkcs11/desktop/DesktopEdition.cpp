#include "pkcs11/desktop/DesktopEdition.h"

namespace PKCS11 {

DesktopEdition& DesktopEdition::instance()
{
    static DesktopEdition edition;
    return edition;
}

} // namespace PKCS11
