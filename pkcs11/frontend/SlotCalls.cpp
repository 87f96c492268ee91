#include "pkcs11/frontend/PKCS11Wrapper.h"

#include "pkcs11/Edition.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/CallPattern.h"
#include "pkcs11/pcsc/SlotWaits.h"
#include "pkcs11/token/Token.h"

namespace PKCS11 {

namespace {

void writeMechanismTypes(MechanismList& mechanisms, CK_MECHANISM_TYPE* list, CK_ULONG* count)
{
    const CK_ULONG found = mechanisms.highWater();
    if (list != nullptr) {
        // The count is deliberately not raised to what is needed.
        if (*count < found)
            throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
        for (CK_ULONG handle = 1; handle <= found; ++handle) {
            if (const MechanismInfo* info = mechanisms.at(handle))
                list[handle - 1] = info->getType();
        }
    }
    *count = found;
}

void logTokenInfo(const CK_TOKEN_INFO& info)
{
    logResults(
        {text("pInfo->label", info.label, sizeof(info.label)),
         text("pInfo->manufacturerID", info.manufacturerID, sizeof(info.manufacturerID)),
         text("pInfo->model", info.model, sizeof(info.model)),
         text("pInfo->serialNumber", info.serialNumber, sizeof(info.serialNumber)),
         number("pInfo->hardwareVersion", info.hardwareVersion.major),
         number("pInfo->firmwareVersion", info.firmwareVersion.major),
         number("pInfo->ulFreePrivateMemory", info.ulFreePrivateMemory),
         number("pInfo->ulTotalPrivateMemory", info.ulTotalPrivateMemory),
         number("pInfo->ulFreePublicMemory", info.ulFreePublicMemory),
         number("pInfo->ulTotalPublicMemory", info.ulTotalPublicMemory),
         number("pInfo->ulMaxPinLen", info.ulMaxPinLen), number("pInfo->ulMinPinLen", info.ulMinPinLen),
         number("pInfo->ulMaxRwSessionCount", info.ulMaxRwSessionCount),
         number("pInfo->ulRwSessionCount", info.ulRwSessionCount),
         number("pInfo->ulMaxSessionCount", info.ulMaxSessionCount),
         number("pInfo->ulSessionCount", info.ulSessionCount), tokenFlags("pInfo->flags", info.flags)});
}

} // namespace

CK_RV PKCS11Wrapper::GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount)
{
    return plainCall({"C_GetSlotList", pulCount},
                     {number("tokenPresent", tokenPresent), pointer("pSlotList", pSlotList),
                      pointer("pulCount", pulCount)},
                     [&] {
                         if (pSlotList == nullptr) {
                             UpdateSlotList();
                             m_slots->update();
                         }
                         m_slots->getIDList(tokenPresent, pSlotList, pulCount);
                         logResults({pointee("pulCount", pulCount)});
                         return CKR_OK;
                     });
}

CK_RV PKCS11Wrapper::GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo)
{
    return slotCall(
        "C_GetSlotInfo", slotID, {number("slotID", slotID), pointer("pInfo", pInfo)},
        [&](Slot& slot) {
            requirePointer(pInfo);
            // getInfo() has just asked the reader, so its CKF_TOKEN_PRESENT stands.
            pInfo << slot.getInfo();
            logResults(
                {text("pInfo->slotDescription", pInfo->slotDescription, sizeof(pInfo->slotDescription)),
                 text("pInfo->manufacturerID", pInfo->manufacturerID, sizeof(pInfo->manufacturerID)),
                 number("pInfo->firmwareVersion.major", pInfo->firmwareVersion.major),
                 number("pInfo->firmwareVersion.minor", pInfo->firmwareVersion.minor),
                 number("pInfo->hardwareVersion.major", pInfo->hardwareVersion.major),
                 number("pInfo->hardwareVersion.minor", pInfo->hardwareVersion.minor),
                 slotFlags("pInfo->flags", pInfo->flags)});
            return CKR_OK;
        },
        Hook::none);
}

CK_RV PKCS11Wrapper::GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo)
{
    return slotCall({"C_GetTokenInfo", pInfo}, slotID, {number("slotID", slotID), address("pInfo", pInfo)},
                    [&](Slot& slot) -> CK_RV {
                        if (!slot.isTokenPresent())
                            return CKR_TOKEN_NOT_PRESENT;
                        slot.updateSessionCount();
                        *pInfo = slot.getTokenOfPresentCard()->getInfo();
                        pInfo->flags |= Edition::current().addedTokenFlags();
                        logTokenInfo(*pInfo);
                        return CKR_OK;
                    });
}

CK_RV PKCS11Wrapper::GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                                      CK_ULONG_PTR pulCount)
{
    return slotCall(
        "C_GetMechanismList", slotID,
        {number("slotID", slotID), pointer("pMechanismList", pMechanismList), pointer("pulCount", pulCount)},
        [&](Slot& slot) {
            requirePointer(pulCount);
            writeMechanismTypes(*slot.getToken()->getMechanismList(), pMechanismList, pulCount);
            logResults({pointee("pulCount", pulCount)});
            return CKR_OK;
        });
}

CK_RV PKCS11Wrapper::GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo)
{
    return slotCall(
        "C_GetMechanismInfo", slotID,
        {number("slotID", slotID), number("type", type), mechanismName(type), pointer("pInfo", pInfo)},
        [&](Slot& slot) {
            requirePointer(pInfo);
            *pInfo = slot.getToken()->getMechanismList()->getMechanism(type)->getInfo();
            logResults({number("pInfo->ulMinKeySize", pInfo->ulMinKeySize),
                        number("pInfo->ulMaxKeySize", pInfo->ulMaxKeySize),
                        mechanismFlags("pInfo->flags", pInfo->flags)});
            return CKR_OK;
        });
}

CK_RV PKCS11Wrapper::InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen,
                               CK_UTF8CHAR_PTR pLabel)
{
    return slotCall("C_InitToken", slotID,
                    {number("slotID", slotID), pointer("pPin", pPin), number("ulPinLen", ulPinLen),
                     text("pLabel", pLabel, sizeof(CK_TOKEN_INFO::label))},
                    [&](Slot& slot) -> CK_RV {
                        if (!slot.isTokenPresent())
                            return CKR_TOKEN_NOT_PRESENT;
                        return slot.InitToken(pPin, ulPinLen, pLabel);
                    });
}

CK_RV PKCS11Wrapper::InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen)
{
    return run("C_InitPIN", {pointer("pPin", pPin)}, Hook::session, hSession, [&] {
        // The one argument that is logged after the initialised check.
        logArguments({number("hSession", hSession)});
        Session* session = m_sessions->getSession(hSession);
        session->initPIN(Blob::fromMemory(pPin, ulPinLen));
        return CKR_OK;
    });
}

CK_RV PKCS11Wrapper::SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
                            CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen)
{
    return sessionCall(
        "C_SetPIN", hSession,
        {number("hSession", hSession), pointer("pOldPin", pOldPin), pointer("pNewPin", pNewPin)},
        [&](Session& session) {
            session.setPIN(Blob::fromMemory(pOldPin, ulOldLen), Blob::fromMemory(pNewPin, ulNewLen));
        });
}

CK_RV PKCS11Wrapper::WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, void* pReserved)
{
    // From here to the end, trace included, nothing that this call uses goes away.
    const SlotWaits::Wait wait;
    if (hasEnded())
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    return plainCall({"C_WaitForSlotEvent", pSlot}, {number("flags", flags), address("pSlot", pSlot)}, [&] {
        if (!m_slots->waitForSlotEvent(flags, pSlot, pReserved))
            return CKR_CRYPTOKI_NOT_INITIALIZED; // Finalize cancelled it
        logResults({pointee("pSlot", pSlot)});
        return CKR_OK;
    });
}

} // namespace PKCS11
