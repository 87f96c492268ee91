#include "pkcs11/frontend/PKCS11Wrapper.h"

#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/CallPattern.h"

namespace PKCS11 {

CK_RV PKCS11Wrapper::CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                                  CK_OBJECT_HANDLE_PTR phObject)
{
    return sessionCall(
        "C_CreateObject", hSession,
        {number("hSession", hSession), attributes(pTemplate, ulCount), pointer("phObject", phObject)},
        [&](Session& session) { session.createObject(pTemplate, ulCount, phObject); },
        {pointee("phObject", phObject)});
}

CK_RV PKCS11Wrapper::CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                                CK_OBJECT_HANDLE_PTR phNewObject)
{
    return sessionCall(
        "C_CopyObject", hSession,
        {number("hSession", hSession), number("hObject", hObject), attributes(pTemplate, ulCount),
         pointer("phNewObject", phNewObject)},
        [&](Session& session) { session.copyObject(hObject, pTemplate, ulCount, phNewObject); },
        {pointee("phNewObject", phNewObject)});
}

CK_RV PKCS11Wrapper::DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject)
{
    return sessionCall("C_DestroyObject", hSession,
                       {number("hSession", hSession), number("hObject", hObject)},
                       [&](Session& session) { session.destroyObject(hObject); });
}

CK_RV PKCS11Wrapper::GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize)
{
    return sessionCall(
        "C_GetObjectSize", hSession,
        {number("hSession", hSession), number("hObject", hObject), pointer("pulSize", pulSize)},
        [&](Session& session) { session.getObjectSize(hObject, pulSize); }, {pointee("pulSize", pulSize)});
}

CK_RV PKCS11Wrapper::GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount)
{
    return sessionCall(
        "C_GetAttributeValue", hSession,
        {number("hSession", hSession), number("hObject", hObject), attributes(pTemplate, ulCount)},
        [&](Session& session) { session.getAttributeValue(hObject, pTemplate, ulCount); },
        {attributes(pTemplate, ulCount)});
}

CK_RV PKCS11Wrapper::SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount)
{
    return sessionCall(
        "C_SetAttributeValue", hSession,
        {number("hSession", hSession), number("hObject", hObject), attributes(pTemplate, ulCount)},
        [&](Session& session) { session.setAttributeValue(hObject, pTemplate, ulCount); });
}

CK_RV PKCS11Wrapper::FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount)
{
    return sessionCall("C_FindObjectsInit", hSession,
                       {number("hSession", hSession), attributes(pTemplate, ulCount)},
                       [&](Session& session) { session.findObjectsInit(pTemplate, ulCount); });
}

CK_RV PKCS11Wrapper::FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                                 CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount)
{
    return sessionCall("C_FindObjects", hSession,
                       {number("hSession", hSession), pointer("phObject", phObject),
                        number("ulMaxObjectCount", ulMaxObjectCount),
                        pointer("pulObjectCount", pulObjectCount)},
                       [&](Session& session) {
                           session.findObjects(phObject, ulMaxObjectCount, pulObjectCount);
                           logResults({handles("phObject", phObject, *pulObjectCount),
                                       pointee("pulObjectCount", pulObjectCount)});
                       });
}

CK_RV PKCS11Wrapper::FindObjectsFinal(CK_SESSION_HANDLE hSession)
{
    return sessionCall("C_FindObjectsFinal", hSession, {number("hSession", hSession)},
                       [](Session& session) { session.findObjectsFinal(); });
}

} // namespace PKCS11
