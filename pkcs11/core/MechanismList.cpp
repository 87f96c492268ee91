#include "pkcs11/core/MechanismList.h"

#include "pkcs11/PKCS11Exception.h"

namespace PKCS11 {

MechanismInfo* MechanismList::getMechanism(const CK_MECHANISM* mechanism)
{
    if (mechanism == nullptr)
        throw PKCS11Exception(CKR_ARGUMENTS_BAD, "", "MechanismList::getMechanism");
    return getMechanism(mechanism->mechanism);
}

MechanismInfo* MechanismList::getMechanism(CK_MECHANISM_TYPE type)
{
    for (unsigned long handle = 1; handle <= highWater(); ++handle) {
        MechanismInfo* info = at(handle);
        if (info != nullptr && info->getType() == type)
            return info;
    }
    throw PKCS11Exception(CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID", "MechanismList::getMechanism");
}

} // namespace PKCS11
