#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/FunctionList.h"
#include "pkcs11/frontend/trace/FileLogger.h"
#include "tests/support/CryptokiFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <winscard.h>

namespace {

using PKCS11::PKCS11Exception;
using Lines = std::vector<std::string>;
using LifeCycleTest = CryptokiFixture;

template <class... Types>
CK_RV callWithZeros(CK_RV (*function)(Types...))
{
    return function(Types{}...);
}

/// Calls every function with zeros only. `answers` holds names with their codes; the others give `other`.
void expectAnswers(const std::string& answers, CK_RV other)
{
    std::istringstream text("GetInfo 7 GetFunctionList 5 GetSlotList 7 GetTokenInfo 7 WaitForSlotEvent 7 " +
                            answers);
    std::map<std::string, CK_RV> expected;
    std::string known;
    while (text >> known)
        text >> std::hex >> expected[known];
    CK_FUNCTION_LIST* list = nullptr;
    ASSERT_EQ(C_GetFunctionList(&list), CKR_OK);
    list->C_Initialize = list->C_Finalize = nullptr; // the next C_GetFunctionList fills them again
#define EXPECT_ANSWER(name)                                                                                  \
    EXPECT_EQ(list->C_##name != nullptr ? callWithZeros(list->C_##name) : other,                             \
              expected.insert({#name, other}).first->second)                                                 \
        << #name;
    QUARVEL_CRYPTOKI_FUNCTIONS(EXPECT_ANSWER)
}

TEST_F(LifeCycleTest, EveryFunctionAnswersWithoutAndWithInitialisation)
{
    expectAnswers("", CKR_CRYPTOKI_NOT_INITIALIZED);
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    expectAnswers(
        "GetSlotInfo 3 GetMechanismList 3 GetMechanismInfo 3 InitToken 3 OpenSession 3 CloseAllSessions 0 "
        "GetOperationState 180 SetOperationState 160 GetFunctionStatus 51 CancelFunction 51 DigestKey 54 "
        "DigestEncryptUpdate 54 DecryptDigestUpdate 54 SignEncryptUpdate 54 DecryptVerifyUpdate 54",
        CKR_SESSION_HANDLE_INVALID);
}

TEST_F(LifeCycleTest, InitialisationsAreCounted)
{
    CK_ULONG count = 9;
    EXPECT_EQ(C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED); // lowers the count below zero
    EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(C_Finalize(&count), CKR_OK);
    EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK); // two starts need two ends
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(C_GetSlotList(CK_FALSE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    if (PKCS11::Edition::current().addedTokenFlags() != 0)
        return; // the desktop edition starts without the service
    fakepcsc::failCall("SCardIsValidContext", 0x80100003L);
    EXPECT_EQ(C_Initialize(nullptr), CKR_DEVICE_ERROR);
    EXPECT_EQ(C_GetSlotList(CK_FALSE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK); // the failed start counts too
    EXPECT_EQ(C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
}

TEST_F(LifeCycleTest, SlotCalls)
{
    start(std::make_shared<vcard::PivCard>());
    CK_ULONG count = 0;
    ASSERT_EQ(C_GetMechanismList(1, nullptr, &count), CKR_OK);
    std::vector<CK_MECHANISM_TYPE> types(count);
    CK_ULONG room = count - 1;
    EXPECT_EQ(C_GetMechanismList(1, types.data(), &room), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(room, count - 1);
    EXPECT_EQ(C_GetMechanismList(1, types.data(), &count), CKR_OK);
    CK_MECHANISM_INFO mechanism{};
    EXPECT_EQ(C_GetMechanismInfo(1, types.back(), &mechanism), CKR_OK);
    EXPECT_EQ(C_GetMechanismInfo(1, CKM_AES_ECB, &mechanism), CKR_MECHANISM_INVALID);

    fakepcsc::removeCard(m_reader);
    CK_SLOT_INFO slot{};
    EXPECT_EQ(C_GetSlotInfo(1, &slot), CKR_OK);
    EXPECT_EQ(slot.flags, CK_FLAGS{CKF_REMOVABLE_DEVICE | CKF_HW_SLOT});
    EXPECT_EQ(C_GetSlotInfo(99, &slot), CKR_SLOT_ID_INVALID);
    CK_TOKEN_INFO token{};
    EXPECT_EQ(C_GetTokenInfo(1, &token), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(C_InitToken(1, nullptr, 0, nullptr), CKR_TOKEN_NOT_PRESENT);
}

TEST_F(LifeCycleTest, SessionsOfASlotShareItsTokenAndTheLastOneEndsTheLogin)
{
    const auto card = std::make_shared<vcard::PivCard>();
    start(card);
    const CK_SESSION_HANDLE first = m_session;
    ASSERT_EQ(open(), CKR_OK);
    const CK_SESSION_HANDLE second = m_session;
    const auto state = [](CK_SESSION_HANDLE session) {
        CK_SESSION_INFO info{};
        EXPECT_EQ(C_GetSessionInfo(session, &info), CKR_OK);
        return info.state;
    };
    ASSERT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(state(first), CKS_RW_USER_FUNCTIONS);
    CK_SESSION_HANDLE reading = 0;
    ASSERT_EQ(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &reading), CKR_OK);
    EXPECT_EQ(tokenInfo().ulSessionCount * 10 + tokenInfo().ulRwSessionCount, 32U);
    ASSERT_EQ(C_CloseSession(reading), CKR_OK);

    // A destroyed key ends the operations that work with it, in every session, and no other.
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    ASSERT_EQ(C_SignInit(first, &mechanism, key), CKR_OK);
    ASSERT_EQ(C_SignInit(second, &mechanism, find(CKO_PRIVATE_KEY, 1)), CKR_OK);
    EXPECT_EQ(C_DestroyObject(second, key), CKR_OK);
    Bytes room(256);
    CK_ULONG length = room.size();
    EXPECT_EQ(C_Sign(first, room.data(), 20, room.data(), &length), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_Sign(second, room.data(), 20, room.data(), &length), CKR_OK);
    ASSERT_EQ(C_SignInit(second, &mechanism, find(CKO_PRIVATE_KEY)), CKR_OK);
    EXPECT_EQ(C_DestroyObject(first, find(CKO_PRIVATE_KEY)), CKR_OK);
    EXPECT_EQ(C_Sign(second, room.data(), 20, room.data(), &length), CKR_OPERATION_NOT_INITIALIZED);

    // Another card pauses both sessions; the one that is used comes back, and searches from the start.
    EXPECT_EQ(C_FindObjectsInit(first, nullptr, 0), CKR_OK);
    CK_OBJECT_HANDLE found[20] = {};
    CK_ULONG count = 0;
    EXPECT_EQ(C_FindObjects(first, found, 5, &count), CKR_OK);
    fakepcsc::insertCard(m_reader, card);
    m_session = first;
    ASSERT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(C_FindObjects(first, found, 20, &count), CKR_OK);
    EXPECT_EQ(count, 12U);
    EXPECT_EQ(C_CloseAllSessions(1), CKR_OK); // the paused one last
    EXPECT_EQ(C_CloseSession(second), CKR_SESSION_HANDLE_INVALID);
    ASSERT_EQ(open(), CKR_OK);
    EXPECT_EQ(state(m_session), CKS_RW_PUBLIC_SESSION);
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_SESSION_HANDLE third = m_session;
    ASSERT_EQ(open(), CKR_OK);
    EXPECT_EQ(C_CloseSession(third), CKR_OK);
    EXPECT_EQ(state(m_session), CKS_RW_USER_FUNCTIONS);
    EXPECT_EQ(C_CloseSession(m_session), CKR_OK);
    EXPECT_EQ(tokenInfo().ulSessionCount, 0U);
    ASSERT_EQ(open(), CKR_OK);
    EXPECT_EQ(state(m_session), CKS_RW_PUBLIC_SESSION);
    EXPECT_EQ(C_OpenSession(1, CKF_RW_SESSION, nullptr, nullptr, &m_session),
              CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    EXPECT_EQ(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, nullptr), CKR_ARGUMENTS_BAD);
}

TEST_F(LifeCycleTest, CallsAreTracedLineByLineWithoutPins)
{
    const TraceFile trace;
    start(std::make_shared<vcard::PivCard>());
    const CK_SESSION_HANDLE good = std::exchange(m_session, 77);
    const size_t before = trace.lines().size();
    EXPECT_EQ(login("987654"), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_SignFinal(77, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    Lines lines = trace.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "CInitArg :\t 0"), 1);
    EXPECT_EQ(Lines(lines.begin() + before, lines.end() - 6),
              (Lines{std::string(40, '-'), "C_Login", "hSession :\t 77", "userType :\t 1", "pPin :\t *",
                     "PKCS11Exception:", "ex.value() :\t 179", "ex.what():\t CKR_SESSION_HANDLE_INVALID",
                     "ex.where():\t SessionList::getSession", "C_Login return: CKR_SESSION_HANDLE_INVALID",
                     "", std::string(40, '-'), "C_SignFinal", "hSession :\t 77", "pSignature :\t 0",
                     "pulSignatureLen :\t 0x00000000"}));
    m_session = good;
    EXPECT_EQ(login("987654"), CKR_PIN_INCORRECT);
    EXPECT_EQ(setPin("987654", "987655"), CKR_PIN_INCORRECT);
    for (const std::string& line : trace.lines()) {
        EXPECT_EQ(line.find("98765"), std::string::npos) << line;
        EXPECT_EQ(line.find("3938373635"), std::string::npos) << line;
    }
}

/// A card behind a link that can break with any exception.
struct BreakingCard final : vcard::PivCard {
    std::function<void()> link = [] {};
    vcard::Response process(const vcard::Command& command) override
    {
        link();
        return PivCard::process(command);
    }
};

TEST_F(LifeCycleTest, FailuresBelowBecomeCodesAndPauseSessions)
{
    const auto card = std::make_shared<BreakingCard>();
    start(card);
    const auto paused = [&] { return wrapper.sessions()->peekSession(m_session)->isPaused(); };
    card->link = [] { throw std::runtime_error("of another kind"); };
    EXPECT_EQ(login("123456"), CKR_FUNCTION_FAILED);
    card->link = [] { throw PKCS11Exception(CKR_PIN_EXPIRED); };
    EXPECT_EQ(login("123456"), CKR_PIN_EXPIRED);
    EXPECT_FALSE(paused());
    for (const CK_RV code : {CKR_TOKEN_NOT_PRESENT, CKR_TOKEN_NOT_RECOGNIZED, CKR_DEVICE_REMOVED}) {
        card->link = [code] { throw PKCS11Exception(code); };
        EXPECT_EQ(login("123456"), code);
        EXPECT_TRUE(paused());
    }
    card->link = [] {};
    EXPECT_EQ(login("123456"), CKR_OK);
    EXPECT_FALSE(paused());
    fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR,
                       isDesktop() ? 3 : 2); // which PIN holds nobody knows
    EXPECT_EQ(setPin("123456", "654321"), CKR_GENERAL_ERROR);
    EXPECT_EQ(login("123456"), CKR_OK);
}

/// A trace that fails at the name of one call, from where an exception escapes the method.
struct FailingLogger final : PKCS11::Logger {
    explicit FailingLogger(const char* call) : name(call) {}
    void doLog(short /*level*/, const char* text) override
    {
        if (std::strcmp(text, name) == 0)
            throw std::runtime_error(name);
    }
    void doSetLoglevel(short /*level*/) override {}
    const char* name;
};

TEST_F(LifeCycleTest, EscapedExceptionDropsTheOperation)
{
    const TraceFile trace; // the library has its trace and does not replace ours
    start(std::make_shared<vcard::PivCard>());
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OK);
    PKCS11::Logger::SetLogger(new FailingLogger("C_GenerateRandom"));
    EXPECT_EQ(C_GenerateRandom(m_session, nullptr, 0), CKR_GENERAL_ERROR);
    EXPECT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OPERATION_ACTIVE);
    PKCS11::Logger::SetLogger(new FailingLogger("C_SignUpdate"));
    EXPECT_EQ(C_SignUpdate(m_session, nullptr, 0), CKR_GENERAL_ERROR);
    EXPECT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OK);
    PKCS11::Logger::SetLogger(new PKCS11::FileLogger(SystemWrapper::s_logPath, 98));
    PKCS11::Logger::SetLoglevel(99);
}

TEST_F(LifeCycleTest, ProcessMayExitWithAnOpenSession)
{
    const auto exitWithSession = [this] {
        start(std::make_shared<vcard::PivCard>());
        std::exit(login("123456") == CKR_OK ? 0 : 1);
    };
    EXPECT_EXIT(exitWithSession(), ::testing::ExitedWithCode(0), "");
}

} // namespace
