#pragma once

#include "pkcs11/core/Object.h"
#include "pkcs11/core/Table.h"

#include <memory>
#include <vector>

namespace PKCS11 {

/// All objects of a token, owned here, and the one search that runs on them: sessions of a slot share its
/// cursor.
class ObjectList : public Table {
public:
    ObjectList() = default;
    ~ObjectList() override;

    /// Takes the object and returns its handle.
    unsigned long put(std::unique_ptr<Object> object);
    /// Throws CKR_OBJECT_HANDLE_INVALID (0x82) for an unknown handle and CKR_USER_NOT_LOGGED_IN (0x101) for a
    /// private object without access. The one place where private objects are hidden.
    Object* getObject(unsigned long handle, bool canAccessPrivate);
    /// Destroys the object and frees its handle.
    void destroy(unsigned long handle);

    /// Copies the template and starts at the first handle. Replaces a running search. A null template with a
    /// count matches nothing.
    void findObjectsInit(const CK_ATTRIBUTE* attributes, CK_ULONG count);
    /// Adds up to max handles, in ascending order, behind the *pulCount that stand there. Objects are tested
    /// when the search reaches them; one whose attributes cannot be read is passed over.
    void findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount, bool canAccessPrivate);
    void findObjectsFinal();

private:
    Object* at(unsigned long handle) const { return static_cast<Object*>(find(handle)); }
    static bool isVisible(Object& object, bool canAccessPrivate);
    bool matchesSearch(Object& object) const;

    /// The entries point into the values.
    std::vector<Blob> m_findValues;
    std::vector<CK_ATTRIBUTE> m_findTemplate;
    bool m_matchesNothing = false;
    unsigned long m_findNext = 0;
};

} // namespace PKCS11
