#pragma once

#include "pkcs11/core/Object.h"
#include "pkcs11/core/ObjectSearch.h"
#include "pkcs11/core/OwningTable.h"

namespace PKCS11 {

/// All objects of a token, and the search on them whose cursor the sessions of a slot share.
class ObjectList : public OwningTable<Object> {
public:
    /// Throws CKR_OBJECT_HANDLE_INVALID (0x82) for an unknown handle and CKR_USER_NOT_LOGGED_IN (0x101) for a
    /// private object without access. The one place where private objects are hidden.
    Object* getObject(unsigned long handle, bool canAccessPrivate);

    // The search that the sessions of the token share.

    /// Replaces a running search.
    void findObjectsInit(const CK_ATTRIBUTE* attributes, CK_ULONG count);
    void findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount, bool canAccessPrivate);
    void findObjectsFinal();

    /// Adds up to max handles, in ascending order, after the *pulCount that stand there. Objects are tested
    /// when the search reaches them; one whose attributes cannot be read is passed over.
    void continueSearch(ObjectSearch& search, CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount,
                        bool canAccessPrivate);

private:
    static bool isVisible(Object& object, bool canAccessPrivate);

    ObjectSearch m_search;
};

} // namespace PKCS11
