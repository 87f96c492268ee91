#include "pkcs11/core/ObjectList.h"

#include "pkcs11/core/Storage.h"
#include "pkcs11/core/Template.h"

#include <utility>

namespace PKCS11 {

ObjectList::~ObjectList()
{
    for (unsigned long handle = 1; handle <= highWater(); ++handle)
        destroy(handle);
}

unsigned long ObjectList::put(std::unique_ptr<Object> object)
{
    const unsigned long handle = putEntry(object.get());
    static_cast<void>(object.release()); // the table holds it now
    return handle;
}

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

void ObjectList::destroy(unsigned long handle)
{
    const std::unique_ptr<Object> object(static_cast<Object*>(delEntry(handle)));
}

void ObjectList::findObjectsInit(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    findObjectsFinal();
    try {
        checkTemplate(attributes, count);
        std::vector<Blob> values;
        std::vector<CK_ATTRIBUTE> entries;
        for (CK_ULONG i = 0; i < count; ++i)
            values.push_back(Blob::fromMemory(attributes[i].pValue, attributes[i].ulValueLen));
        for (CK_ULONG i = 0; i < count; ++i)
            entries.push_back(
                {attributes[i].type, values[i].data(), static_cast<CK_ULONG>(values[i].size())});
        m_findValues.swap(values);
        m_findTemplate.swap(entries);
    } catch (const PKCS11Exception&) {
        // A search never fails to start; no object has a value that cannot be read or held.
        m_matchesNothing = true;
    }
}

void ObjectList::findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount,
                             bool canAccessPrivate)
{
    if (m_matchesNothing)
        return;
    // Only a reported object moves the cursor, so that objects added behind it are found by the next call.
    for (unsigned long handle = m_findNext; handle <= highWater() && *pulCount < max; ++handle) {
        Object* object = at(handle);
        if (object != nullptr && isVisible(*object, canAccessPrivate) && matchesSearch(*object)) {
            phObject[(*pulCount)++] = handle;
            m_findNext = handle + 1;
        }
    }
}

void ObjectList::findObjectsFinal()
{
    m_findNext = 1;
    m_findTemplate.clear();
    m_findValues.clear();
    m_matchesNothing = false;
}

bool ObjectList::isVisible(Object& object, bool canAccessPrivate)
{
    return canAccessPrivate || !isPrivate(object);
}

bool ObjectList::matchesSearch(Object& object) const
{
    try {
        return object.testObject(m_findTemplate.data(), static_cast<CK_ULONG>(m_findTemplate.size()), 0);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace PKCS11
