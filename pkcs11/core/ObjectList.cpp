#include "pkcs11/core/ObjectList.h"

#include "pkcs11/core/Storage.h"

namespace PKCS11 {

Object* ObjectList::getObject(unsigned long handle, bool canAccessPrivate)
{
    Object* object = at(handle);
    if (object == nullptr)
        throw PKCS11Exception(CKR_OBJECT_HANDLE_INVALID, "CKR_OBJECT_HANDLE_INVALID",
                              "ObjectList::getObject");
    if (!isVisible(*object, canAccessPrivate))
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN", "ObjectList::getObject");
    return object;
}

void ObjectList::findObjectsInit(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    m_search.start(attributes, count);
}

void ObjectList::findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount,
                             bool canAccessPrivate)
{
    continueSearch(m_search, phObject, max, pulCount, canAccessPrivate);
}

void ObjectList::findObjectsFinal()
{
    m_search.finish();
}

void ObjectList::continueSearch(ObjectSearch& search, CK_OBJECT_HANDLE* phObject, CK_ULONG max,
                                CK_ULONG* pulCount, bool canAccessPrivate)
{
    // Only a reported object moves the cursor, so that objects added after it are found by the next call.
    for (unsigned long handle = search.next(); handle <= highWater() && *pulCount < max; ++handle) {
        Object* object = at(handle);
        if (object != nullptr && isVisible(*object, canAccessPrivate) && search.matches(*object)) {
            phObject[(*pulCount)++] = handle;
            search.passed(handle);
        }
    }
}

bool ObjectList::isVisible(Object& object, bool canAccessPrivate)
{
    return canAccessPrivate || !isPrivate(object);
}

} // namespace PKCS11
