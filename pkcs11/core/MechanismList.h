#pragma once

#include "pkcs11/core/MechanismInfo.h"
#include "pkcs11/core/OwningTable.h"

namespace PKCS11 {

/// The mechanisms of a token, in the order in which its driver added them.
class MechanismList : public OwningTable<MechanismInfo> {
public:
    void add(const MechanismInfo& info) { put(std::make_unique<MechanismInfo>(info)); }

    /// The first entry of the type; throws CKR_MECHANISM_INVALID (0x70) when there is none, and
    /// CKR_ARGUMENTS_BAD for a null mechanism.
    MechanismInfo* getMechanism(const CK_MECHANISM* mechanism);
    MechanismInfo* getMechanism(CK_MECHANISM_TYPE type);
};

} // namespace PKCS11
