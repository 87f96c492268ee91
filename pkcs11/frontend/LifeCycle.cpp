#include "pkcs11/frontend/PKCS11Wrapper.h"

#include "pkcs11/Edition.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/CallPattern.h"
#include "pkcs11/frontend/FunctionList.h"
#include "pkcs11/frontend/trace/CallTrace.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/pcsc/SlotWaits.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace PKCS11 {

std::atomic<bool> PKCS11Wrapper::s_ended{false};

PKCS11Wrapper::PKCS11Wrapper() : m_process(getpid()) {}

PKCS11Wrapper::~PKCS11Wrapper()
{
    // However often it was initialised.
    m_initialiseCount = std::min(m_initialiseCount, 1);
    Finalize(nullptr);
    // A wait that was refused may still write its trace.
    SlotWaits::awaitEnd();
    if (m_hasLogger)
        Logger::FreeLogger();
}

CK_RV PKCS11Wrapper::Initialize(void* pInitArgs)
{
    if (Edition::current().startsAnewInChild() && m_process != getpid())
        startAnew();
    InitLogger();
    CK_RV rv = CKR_OK;
    const MethodLogger scope("C_Initialize", rv);
    logArguments({pointer("CInitArg", pInitArgs)});
    if (pInitArgs != nullptr) {
        // The mutex callbacks and flags are neither examined nor used.
        const void* firstField = nullptr;
        std::memcpy(&firstField, pInitArgs, sizeof(firstField));
        logArguments({address("*iargs", firstField)});
    }

    // A refused or failed call counts too: Finalize has to come as often.
    ++m_initialiseCount;
    if (m_initialised) {
        rv = CKR_CRYPTOKI_ALREADY_INITIALIZED;
    } else {
        rv = outcomeOf([&] {
            Init(static_cast<CK_C_INITIALIZE_ARGS*>(pInitArgs));
            m_initialised = true;
            return CKR_OK;
        });
    }
    return rv;
}

bool PKCS11Wrapper::isInitialised() const
{
    return m_initialised && (m_process == getpid() || !Edition::current().startsAnewInChild());
}

void PKCS11Wrapper::startAnew()
{
    m_process = getpid();
    m_initialised = false;
    m_initialiseCount = 0;
    m_sharesTrace = m_sharesTrace || m_hasLogger;
    m_hasLogger = false;
}

CK_RV PKCS11Wrapper::Init(CK_C_INITIALIZE_ARGS* /*args*/)
{
    // What a failed start or end left behind; sessions first, because they know their slots.
    m_sessions.reset();
    m_slots.reset();
    m_sessions = std::make_unique<SessionList>();
    // Throws without a PC/SC service. Its result counts for nothing: no system at all means no slots.
    InitializeSystem();
    return InitSlotList();
}

CK_RV PKCS11Wrapper::Finalize(void* /*pReserved*/)
{
    CK_RV logged = CKR_OK;
    const MethodLogger scope("C_Finalize", logged);
    if (!m_initialised)
        logged = CKR_CRYPTOKI_NOT_INITIALIZED;
    --m_initialiseCount;
    if (logged != CKR_OK)
        return logged;

    if (m_initialiseCount <= 0) {
        // First of all, so that waits that begin from now on stay outside.
        m_initialised = false;
        logged = outcomeOf( // NOLINT(clang-analyzer-deadcode.DeadStores): the scope reads it
            [&] {
                tearDown();
                return CKR_OK;
            });
    }
    // A failed teardown shows in the trace only, deliberately.
    return CKR_OK;
}

void PKCS11Wrapper::tearDown()
{
    m_slots->stopWaitForSlotEvent();
    m_initialiseCount = 0;
    m_sessions.reset();
    m_slots.reset();
}

CK_RV PKCS11Wrapper::GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList)
{
    set_function_list(m_functionList);
    InitLogger();
    CK_RV rv = CKR_OK;
    const MethodLogger scope("C_GetFunctionList", rv);
    logArguments({pointer("ppFunctionList", ppFunctionList)});
    if (ppFunctionList != nullptr)
        *ppFunctionList = &m_functionList;
    else
        rv = CKR_GENERAL_ERROR; // deliberately not CKR_ARGUMENTS_BAD
    return rv;
}

bool PKCS11Wrapper::pausesSessions(const PKCS11Exception& ex) const
{
    switch (ex.value()) {
    case CKR_TOKEN_NOT_RECOGNIZED:
    case CKR_TOKEN_NOT_PRESENT:
        return true;
    case CKR_DEVICE_REMOVED:
        return m_pauseOnRemoval;
    default:
        return false;
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the hooks of a wrapper get a copy
void PKCS11Wrapper::catchTokenException(CK_SLOT_ID slotID, PKCS11Exception ex)
{
    if (pausesSessions(ex))
        m_sessions->pauseAllSessions(slotID);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the hooks of a wrapper get a copy
void PKCS11Wrapper::catchSessionException(CK_SESSION_HANDLE hSession, PKCS11Exception ex)
{
    if (pausesSessions(ex))
        m_sessions->pauseAllSessions2(hSession);
}

void PKCS11Wrapper::closeAllSessions(Slot* slot)
{
    if (m_sessions != nullptr)
        m_sessions->pauseAllSessions(slot);
}

void PKCS11Wrapper::MakeMechanismInvalid(CK_SESSION_HANDLE hSession)
{
    if (m_sessions == nullptr)
        return;
    try {
        m_sessions->getSession(hSession)->cleanMechanism();
    } catch (...) {
        // No such session: nothing to drop.
    }
}

} // namespace PKCS11
