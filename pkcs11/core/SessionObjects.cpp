// The calls on objects, and the search.
#include "pkcs11/core/Session.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/Storage.h"
#include "pkcs11/core/Template.h"
#include "pkcs11/pcsc/Slot.h"
#include "pkcs11/token/Token.h"

#include <utility>

namespace PKCS11 {

namespace {

constexpr char kNotLoggedIn[] = "CKR_USER_NOT_LOGGED_IN";

bool asksForTokenObject(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    const CK_ATTRIBUTE* entry = findAttribute(CKA_TOKEN, attributes, count);
    return entry != nullptr && entry->pValue != nullptr && entry->ulValueLen != 0 &&
           *static_cast<const CK_BYTE*>(entry->pValue) != 0;
}

} // namespace

Object* Session::getObject(CK_OBJECT_HANDLE hObject)
{
    return getToken()->getObject(hObject);
}

CK_OBJECT_HANDLE Session::insertObject(std::unique_ptr<Object> object)
{
    if (dynamic_cast<Storage*>(object.get()) == nullptr)
        throw PKCS11Exception(CKR_OBJECT_HANDLE_INVALID);
    return getToken()->getObjectList()->put(std::move(object));
}

void Session::requireAccess(Object& object, const char* what, const char* where)
{
    if (!canAccessPrivate() && object.getClass() != CKO_VENDOR_DEFINED && isPrivate(object))
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, what, where);
}

void Session::createObject(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* phObject)
{
    constexpr char kWhere[] = "Session::createObject";
    Token* token = getToken();
    checkTemplate(attributes, count);
    requirePointer(phObject);
    if (findAttribute(CKA_CLASS, attributes, count) == nullptr)
        throw PKCS11Exception(CKR_TEMPLATE_INCOMPLETE, "CKR_TEMPLATE_INCOMPLETE", kWhere);
    if (asksForTokenObject(attributes, count))
        requireReadWrite(kWhere);
    *phObject = insertObject(token->createObject(attributes, count));
}

void Session::copyObject(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count,
                         CK_OBJECT_HANDLE* phNew)
{
    constexpr char kWhere[] = "Session::copyObject";
    Token* token = getToken();
    requireReadWrite(kWhere);
    if (!canAccessPrivate())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, kNotLoggedIn, kWhere);
    checkTemplate(attributes, count);
    requirePointer(phNew);
    std::unique_ptr<Object> copy = token->copyObject(getObject(hObject), attributes, count);
    if (copy == nullptr)
        throw PKCS11Exception(CKR_VENDOR_DEFINED, "token->copyObject(...) did not create an object",
                              "Session::copyObject(...)"); // so written here alone, deliberately
    if (count != 0)
        copy->setAttribute(attributes, count);
    *phNew = insertObject(std::move(copy));
}

void Session::destroyObject(CK_OBJECT_HANDLE hObject)
{
    Token* token = getToken();
    Object* object = getObject(hObject);
    if (dynamic_cast<Storage*>(object) == nullptr)
        throw PKCS11Exception(CKR_OBJECT_HANDLE_INVALID);
    if (!canAccessPrivate())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, kNotLoggedIn, "Session::destroyObject");
    object->Delete();
    m_slot->endOperations(object);
    token->getObjectList()->destroy(hObject);
}

void Session::getObjectSize(CK_OBJECT_HANDLE hObject, CK_ULONG* pulSize)
{
    Object* object = getObject(hObject);
    requireAccess(*object, kNotLoggedIn, "Session::getObjectSize");
    requirePointer(pulSize);
    *pulSize = object->getObjectSize();
}

void Session::getAttributeValue(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    Object* object = getObject(hObject);
    requireAccess(*object, "2", "Session::getAttributeValue"); // all that its text says, deliberately
    object->getAttribute(attributes, count);
}

void Session::setAttributeValue(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    constexpr char kWhere[] = "Session::setAttributeValue";
    getToken();
    requireReadWrite(kWhere);
    Object* object = getObject(hObject);
    requireAccess(*object, "", kWhere);
    auto* storage = dynamic_cast<Storage*>(object);
    if (storage != nullptr && storage->getModifiable() == CK_FALSE)
        throw PKCS11Exception(CKR_ATTRIBUTE_READ_ONLY, "CKR_ATTRIBUTE_READ_ONLY", kWhere);
    object->setAttribute(attributes, count);
}

void Session::findObjectsInit(CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    ObjectList* objects = getToken()->getObjectList();
    if (Edition::current().isSearchPerSession())
        m_search.start(attributes, count);
    else
        objects->findObjectsInit(attributes, count);
}

void Session::findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount)
{
    Token* token = getToken();
    requirePointer(pulCount);
    *pulCount = 0;
    requireBuffer(phObject, max);
    ObjectList* objects = token->getObjectList();
    if (Edition::current().isSearchPerSession())
        objects->continueSearch(m_search, phObject, max, pulCount, canAccessPrivate());
    else
        objects->findObjects(phObject, max, pulCount, canAccessPrivate());
}

void Session::findObjectsFinal()
{
    getToken()->getObjectList()->findObjectsFinal();
    m_search.finish();
}

} // namespace PKCS11
