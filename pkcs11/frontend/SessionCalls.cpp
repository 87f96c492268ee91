#include "pkcs11/frontend/PKCS11Wrapper.h"

#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/CallPattern.h"

namespace PKCS11 {

CK_RV PKCS11Wrapper::OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication, CK_NOTIFY Notify,
                                 CK_SESSION_HANDLE_PTR phSession)
{
    return slotCall(
        "C_OpenSession", slotID,
        {number("slotID", slotID), sessionFlags("flags", flags), pointer("pApplication", pApplication),
         pointer("Notify", reinterpret_cast<const void*>(Notify)), pointer("phSession", phSession)},
        [&](Slot& slot) {
            m_sessions->openSession(&slot, slotID, flags, pApplication, Notify, phSession);
            logResults({pointee("phSession", phSession)});
            return CKR_OK;
        });
}

CK_RV PKCS11Wrapper::CloseSession(CK_SESSION_HANDLE hSession)
{
    return run("C_CloseSession", {number("hSession", hSession)}, Hook::session, hSession, [&] {
        m_sessions->closeSession(hSession);
        return CKR_OK;
    });
}

CK_RV PKCS11Wrapper::CloseAllSessions(CK_SLOT_ID slotID)
{
    return plainCall("C_CloseAllSessions", {number("slotID", slotID)}, [&] {
        m_sessions->closeAllSessions(slotID);
        return CKR_OK;
    });
}

CK_RV PKCS11Wrapper::GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo)
{
    return sessionCall("C_GetSessionInfo", hSession, {number("hSession", hSession), pointer("pInfo", pInfo)},
                       [&](Session& session) {
                           requirePointer(pInfo);
                           *pInfo = session.getSessionInfo();
                           logResults({number("pInfo->slotID", pInfo->slotID),
                                       sessionState("pInfo->state", pInfo->state),
                                       sessionFlags("pInfo->flags", pInfo->flags),
                                       number("pInfo->ulDeviceError", pInfo->ulDeviceError)});
                       });
}

CK_RV PKCS11Wrapper::GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                                       CK_ULONG_PTR pulOperationStateLen)
{
    return answer("C_GetOperationState",
                  {number("hSession", hSession), pointer("pOperationState", pOperationState),
                   pointee("pulOperationStateLen", pulOperationStateLen)},
                  CKR_STATE_UNSAVEABLE);
}

CK_RV PKCS11Wrapper::SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                                       CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                                       CK_OBJECT_HANDLE hAuthenticationKey)
{
    return answer("C_SetOperationState",
                  {number("hSession", hSession), pointer("pOperationState", pOperationState),
                   number("ulOperationStateLen", ulOperationStateLen),
                   number("hEncryptionKey", hEncryptionKey),
                   number("hAuthenticationKey", hAuthenticationKey)},
                  CKR_SAVED_STATE_INVALID);
}

CK_RV PKCS11Wrapper::Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,
                           CK_ULONG ulPinLen)
{
    return sessionCall("C_Login", hSession,
                       {number("hSession", hSession), number("userType", userType), pointer("pPin", pPin)},
                       [&](Session& session) { session.login(userType, pPin, ulPinLen); });
}

CK_RV PKCS11Wrapper::Logout(CK_SESSION_HANDLE hSession)
{
    return sessionCall("C_Logout", hSession, {number("hSession", hSession)},
                       [](Session& session) { session.logout(); });
}

CK_RV PKCS11Wrapper::SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen)
{
    return sessionCall(
        "C_SeedRandom", hSession,
        {number("hSession", hSession), pointer("pSeed", pSeed), number("ulSeedLen", ulSeedLen)},
        [&](Session& session) { session.seedRandom(pSeed, ulSeedLen); });
}

CK_RV PKCS11Wrapper::GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen)
{
    return sessionCall(
        "C_GenerateRandom", hSession,
        {number("hSession", hSession), pointer("RandomData", RandomData), number("ulRandomLen", ulRandomLen)},
        [&](Session& session) { session.generateRandom(RandomData, ulRandomLen); });
}

CK_RV PKCS11Wrapper::GetFunctionStatus(CK_SESSION_HANDLE hSession)
{
    return answer("C_GetFunctionStatus", {number("hSession", hSession)}, CKR_FUNCTION_NOT_PARALLEL);
}

CK_RV PKCS11Wrapper::CancelFunction(CK_SESSION_HANDLE hSession)
{
    return answer("C_CancelFunction", {number("hSession", hSession)}, CKR_FUNCTION_NOT_PARALLEL);
}

} // namespace PKCS11
