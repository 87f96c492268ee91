#pragma once

#include "pkcs11/core/MechanismInfo.h"
#include "pkcs11/core/Table.h"

namespace PKCS11 {

/// The mechanisms of a token, in the order in which its driver added them. Owns its entries.
class MechanismList : public Table {
public:
    MechanismList() = default;
    ~MechanismList() override;

    void add(const MechanismInfo& info);

    /// The first entry of the type; throws CKR_MECHANISM_INVALID (0x70) when there is none, and
    /// CKR_ARGUMENTS_BAD for a null mechanism.
    MechanismInfo* getMechanism(const CK_MECHANISM* mechanism);
    MechanismInfo* getMechanism(CK_MECHANISM_TYPE type);
    /// The entry under the handle, or null.
    MechanismInfo* at(unsigned long handle) { return static_cast<MechanismInfo*>(find(handle)); }
};

} // namespace PKCS11
