#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/FunctionList.h"
#include "pkcs11/frontend/trace/FileLogger.h"
#include "tests/support/CryptokiFixture.h"
#include "tests/support/ScriptedCard.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <cstring>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <winscard.h>

namespace {

using PKCS11::PKCS11Exception;
using Codes = std::vector<CK_RV>; // and other numbers
using LifeCycleTest = CryptokiFixture;

template <class First, class... Others>
CK_RV callWithZeros(CK_RV (*function)(First, Others...), CK_ULONG first)
{
    if constexpr (std::is_same_v<First, CK_ULONG>)
        return function(first, Others{}...);
    else
        return function(First{}, Others{}...);
}

/// What every function answers to zeros, those of a slot or session after `first` and `prepare`: the names
/// with codes other than the usual one.
std::string answers(
    CK_RV usual, CK_ULONG first = 0, const std::function<void()>& prepare = [] {})
{
    std::ostringstream text;
    CK_FUNCTION_LIST* list = nullptr;
    C_GetFunctionList(&list);
    list->C_Initialize = list->C_Finalize = nullptr; // the next C_GetFunctionList fills them again
#define NOTE_ANSWER(name)                                                                                    \
    prepare();                                                                                               \
    if (const CK_RV rv = list->C_##name != nullptr ? callWithZeros(list->C_##name, first) : usual;           \
        rv != usual)                                                                                         \
        text << " " #name " " << std::hex << rv;
    QUARVEL_CRYPTOKI_FUNCTIONS(NOTE_ANSWER)
    return text.str();
}

TEST_F(LifeCycleTest, EveryFunctionAnswersWithoutAndWithInitialisation)
{
    const std::string always = " GetInfo 7 GetFunctionList 5 GetSlotList 7";
    EXPECT_EQ(answers(CKR_CRYPTOKI_NOT_INITIALIZED), always + " GetTokenInfo 7 WaitForSlotEvent 7");
    for (const char letter : {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'}) // names that take some room
        fakepcsc::addReader(std::string(60, letter));
    CK_ULONG slots = 0;
    ASSERT_EQ(all({C_Initialize(nullptr), C_GetSlotList(CK_FALSE, nullptr, &slots)}), CKR_OK);
    EXPECT_EQ(slots, 8U);
    EXPECT_EQ(answers(CKR_SESSION_HANDLE_INVALID),
              always + " GetSlotInfo 3 GetTokenInfo 7 GetMechanismList 3 GetMechanismInfo 3 InitToken 3"
                       " OpenSession 3 CloseAllSessions 0 GetOperationState 180 SetOperationState 160"
                       " DigestKey 54 DigestEncryptUpdate 54 DecryptDigestUpdate 54 SignEncryptUpdate 54"
                       " DecryptVerifyUpdate 54 GetFunctionStatus 51 CancelFunction 51 WaitForSlotEvent 7");
    EXPECT_EQ(answers(CKR_SESSION_HANDLE_INVALID, 1)
                  .find(" GetSlotInfo 7 GetTokenInfo 7 GetMechanismList 7"
                        " GetMechanismInfo 7 InitToken e0"),
              always.size());
    EXPECT_EQ(C_InitPIN(1, nullptr, 4), CKR_SESSION_HANDLE_INVALID);
    fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, 1, 2);
    EXPECT_EQ(C_GetSlotInfo(1, nullptr), CKR_ARGUMENTS_BAD);
    fakepcsc::forgetPlans();
    fakepcsc::insertCard(0, std::make_shared<vcard::PivCard>());
    EXPECT_EQ(
        answers(CKR_OPERATION_NOT_INITIALIZED, 1, [this] { C_CloseAllSessions(1), open(), login("123456"); }),
        always +
            " GetSlotInfo 7 GetTokenInfo 7 GetMechanismList 7 GetMechanismInfo 7 InitToken 0 InitPIN 101"
            " SetPIN a0 OpenSession 7 CloseSession 0 CloseAllSessions 0 GetSessionInfo 7"
            " GetOperationState 180 SetOperationState 160 Login 104 Logout 0 CreateObject 7 CopyObject 7"
            " DestroyObject 82 GetObjectSize 82 GetAttributeValue 82 SetAttributeValue 82"
            " FindObjectsInit 0 FindObjects 7 FindObjectsFinal 0 EncryptInit 7 DecryptInit 7 DigestInit 7"
            " DigestKey 54 SignInit 7 SignRecoverInit 7 VerifyInit 7 VerifyRecoverInit 7"
            " DigestEncryptUpdate 54 DecryptDigestUpdate 54 SignEncryptUpdate 54 DecryptVerifyUpdate 54"
            " GenerateKey 7 GenerateKeyPair 7 WrapKey 82 UnwrapKey 82 DeriveKey 7 SeedRandom 54"
            " GenerateRandom 54 GetFunctionStatus 51 CancelFunction 51 WaitForSlotEvent 7");
}

TEST_F(LifeCycleTest, InitialisationsAreCounted)
{
    const CK_RV ended = CKR_CRYPTOKI_NOT_INITIALIZED;
    CK_ULONG count = 9;
    const auto begin = [] { return C_Initialize(nullptr); };
    const auto end = [] { return C_Finalize(nullptr); };
    const auto list = [&] { return C_GetSlotList(CK_FALSE, nullptr, &count); };
    // An end too many lowers the count below zero.
    EXPECT_EQ(Codes({end(), begin(), begin(), C_Finalize(&count), list()}),
              Codes({ended, 0, CKR_CRYPTOKI_ALREADY_INITIALIZED, 0, ended}));
    EXPECT_EQ(Codes({begin(), begin(), end(), list(), end(), list()}), // two starts need two ends
              Codes({0, CKR_CRYPTOKI_ALREADY_INITIALIZED, 0, 0, 0, ended}));
    EXPECT_EQ(count, 0U);
    if (isDesktop())
        return; // starts without the service
    fakepcsc::failCall("SCardIsValidContext", SCARD_E_INVALID_HANDLE);
    EXPECT_EQ(Codes({begin(), list(), begin(), end(), list()}), // the failed start counts too
              Codes({CKR_DEVICE_ERROR, ended, 0, 0, 0}));
}

TEST_F(LifeCycleTest, SlotsFollowTheirReaders)
{
    TraceFile trace;
    fakepcsc::addReader("Reader 0");
    m_reader = fakepcsc::addReader("Reader 1");
    fakepcsc::insertCard(m_reader, std::make_shared<vcard::PivCard>());
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    trace.news();
    // Of an answer: the code, what became of the room, and what was put there.
    const auto slots = [](CK_BBOOL withCard, CK_ULONG room, bool nowhere = false) {
        CK_SLOT_ID ids[2] = {};
        const CK_RV rv = C_GetSlotList(withCard, nowhere ? nullptr : ids, &room);
        return Codes{rv, room, ids[0], ids[1]};
    };
    const auto types = [](CK_ULONG room) {
        CK_MECHANISM_TYPE found[9] = {};
        const CK_RV rv = C_GetMechanismList(2, found, &room);
        return Codes{rv, rv == CKR_OK ? 0 : room, found[1]};
    };
    const auto flags = [](CK_SLOT_ID id = 2) {
        CK_SLOT_INFO info{};
        return Codes{C_GetSlotInfo(id, &info), info.flags};
    };
    CK_TOKEN_INFO info{};
    EXPECT_EQ(slots(CK_FALSE, 1), isDesktop() ? Codes({CKR_BUFFER_TOO_SMALL, 2, 0, 0}) : Codes({0, 2, 1, 2}));
    trace.news();
    EXPECT_EQ(slots(CK_TRUE, 0), Codes({CKR_BUFFER_TOO_SMALL, 1, 0, 0}));
    EXPECT_EQ(trace.failures(), "(buffer too samll|SlotList::getIdList)");
    EXPECT_EQ(slots(CK_TRUE, 1), Codes({0, 1, 2, 0}));
    EXPECT_EQ(slots(CK_TRUE, 0, true), Codes({0, 1, 0, 0}));
    EXPECT_EQ(types(1), Codes({CKR_BUFFER_TOO_SMALL, 1, 0}));
    // Beside a user of another card.
    fakepcsc::insertCard(0, std::make_shared<vcard::PivCard>());
    EXPECT_EQ(Codes({open(), login("123456")}), Codes({0, 0}));
    fakepcsc::clearCalls();
    EXPECT_EQ(types(9), Codes({0, 0, CKM_RSA_X_509}));
    EXPECT_EQ(C_GetTokenInfo(2, &info), CKR_OK);
    EXPECT_EQ(fakepcsc::calls().size(), 4U); // is the card the same one, and is it there?
    EXPECT_EQ(info.ulSessionCount, 0U);
    EXPECT_EQ(std::memcmp(info.utcTime, "unkown\0         ", 16), 0);
    CK_MECHANISM_INFO mechanism{};
    EXPECT_EQ(C_GetMechanismInfo(2, CKM_AES_ECB, &mechanism), CKR_MECHANISM_INVALID);
    EXPECT_EQ(flags(), Codes({0, CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT}));
    // The card goes between two questions.
    fakepcsc::beforeCall("SCardGetStatusChange", 1, [this] { fakepcsc::removeCard(m_reader); });
    EXPECT_EQ(types(9), Codes({CKR_DEVICE_REMOVED, 9, 0}));
    EXPECT_EQ(fakepcsc::open().handles, 1);
    CK_SESSION_INFO session{};
    EXPECT_EQ(C_GetSessionInfo(m_session, &session), CKR_OK);
    EXPECT_EQ(session.state, CKS_RW_USER_FUNCTIONS);
    EXPECT_EQ(types(9), Codes({CKR_TOKEN_NOT_PRESENT, 9, 0}));
    EXPECT_EQ(C_GetTokenInfo(2, &info), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(C_InitToken(2, nullptr, 0, nullptr), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(C_OpenSession(2, CKF_RW_SESSION, nullptr, nullptr, &m_session),
              CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    EXPECT_EQ(flags(), Codes({0, CKF_REMOVABLE_DEVICE | CKF_HW_SLOT}));
    EXPECT_EQ(flags(99), Codes({CKR_SLOT_ID_INVALID, 0}));
    fakepcsc::insertCard(m_reader, std::make_shared<scripted::Card>("", "0031c064b0f31000079000"));
    EXPECT_EQ(types(9), Codes({CKR_TOKEN_NOT_RECOGNIZED, 9, 0}));
    trace.news();
    fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, 1, 2);
    EXPECT_EQ(flags(), Codes({CKR_DEVICE_ERROR, 0}));
    EXPECT_EQ(trace.failures(),
              "(could not connect to reader (wrong READERNAME set?)|PCSCSlot::IsTokenPresent)");
    // A list of names of almost 4 KiB.
    while (fakepcsc::addReader(std::string(60, 'n')) < 65)
        continue;
    EXPECT_EQ(all({C_Finalize(nullptr), C_Initialize(nullptr)}), CKR_OK);
    EXPECT_EQ(slots(CK_FALSE, 0, true), Codes({0, 66, 0, 0}));
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
    CK_SESSION_HANDLE reading = 0;
    EXPECT_EQ(Codes({login("123456"), state(first),
                     C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &reading),
                     tokenInfo().ulSessionCount, tokenInfo().ulRwSessionCount}),
              Codes({0, CKS_RW_USER_FUNCTIONS, 0, 3, 2}));

    // A destroyed key ends the operations that work with it, in every session, and no other.
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    const auto beginSignature = [&](CK_SESSION_HANDLE session, size_t key) {
        return C_SignInit(session, &mechanism, find(CKO_PRIVATE_KEY, key));
    };
    const auto endSignature = [](CK_SESSION_HANDLE session) {
        Bytes room(256);
        CK_ULONG length = room.size();
        return C_Sign(session, room.data(), 20, room.data(), &length);
    };
    EXPECT_EQ(Codes({beginSignature(first, 0), beginSignature(second, 1), beginSignature(reading, 0),
                     C_DestroyObject(second, find(CKO_PRIVATE_KEY)), endSignature(first),
                     endSignature(second), endSignature(reading), C_CloseSession(reading)}),
              Codes({0, 0, 0, 0, CKR_OPERATION_NOT_INITIALIZED, 0, CKR_OPERATION_NOT_INITIALIZED, 0}));

    while (m_session < 10)
        ASSERT_EQ(open(), CKR_OK);
    EXPECT_EQ(beginSignature(m_session, 1), CKR_OK);
    const CK_SESSION_HANDLE tenth = m_session;

    // Another card, or to the edition another service, pauses all sessions; the one that is used comes back,
    // and searches from the start.
    const auto pause = [&] {
        if (isDesktop())
            fakepcsc::stopService(), fakepcsc::startService();
        else
            fakepcsc::insertCard(m_reader, card);
    };
    CK_OBJECT_HANDLE found[20] = {};
    CK_ULONG count = 0;
    CK_OBJECT_CLASS kind = CKO_CERTIFICATE;
    CK_ATTRIBUTE ofKind{CKA_CLASS, &kind, sizeof kind};
    EXPECT_EQ(Codes({C_FindObjectsInit(first, &ofKind, 1), C_FindObjects(first, found, 3, &count), count}),
              Codes({0, 0, 3}));
    pause();
    m_session = first;
    // The product's search ended with its token: what goes on has no template.
    EXPECT_EQ(Codes({login("123456"), C_FindObjects(first, found, 20, &count), count}),
              Codes({0, 0, isDesktop() ? 4U : 12U}));
    EXPECT_EQ(endSignature(tenth), CKR_OPERATION_NOT_INITIALIZED);
    pause();
    EXPECT_EQ(Codes({login("123456"), C_CloseAllSessions(1), // the paused ones last
                     C_CloseSession(second), open(), state(m_session), login("123456")}),
              Codes({0, 0, CKR_SESSION_HANDLE_INVALID, 0, CKS_RW_PUBLIC_SESSION, 0}));
    const CK_SESSION_HANDLE third = m_session;
    EXPECT_EQ(Codes({C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &reading), C_CloseSession(third),
                     state(reading), C_CloseSession(reading), tokenInfo().ulSessionCount, open(),
                     state(m_session)}),
              Codes({0, 0, CKS_RO_USER_FUNCTIONS, 0, 0, 0, CKS_RW_PUBLIC_SESSION}));
    CK_ATTRIBUTE shortClass{CKA_CLASS, &count, 1};
    EXPECT_EQ(Codes({C_OpenSession(1, CKF_RW_SESSION, nullptr, nullptr, &reading),
                     C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, nullptr), login("123456"),
                     C_CreateObject(m_session, &shortClass, 1, found), C_CloseAllSessions(1), open(),
                     state(m_session)}),
              Codes({CKR_SESSION_PARALLEL_NOT_SUPPORTED, CKR_ARGUMENTS_BAD, 0, CKR_ATTRIBUTE_VALUE_INVALID, 0,
                     0, CKS_RW_PUBLIC_SESSION}));
}

TEST_F(LifeCycleTest, WhatNeedsLibcryptoIsRefusedBehindItsEnd)
{
    const auto exitWithHandler = [this] {
        static auto& test = *this;
        std::atexit([] { // libcrypto ends before, unless this process has used it already
            CK_RSA_PKCS_PSS_PARAMS parameters{CKM_SHA256, CKG_MGF1_SHA256, 32};
            const CK_MECHANISM pss{CKM_RSA_PKCS_PSS, &parameters, sizeof parameters};
            const Outcome outcomes[] = {test.attribute(test.find(CKO_CERTIFICATE, 1), CKA_SUBJECT),
                                        test.sign(test.find(CKO_PRIVATE_KEY), pss, Bytes(32))};
            for (const Outcome& outcome : outcomes)
                if (outcome.rv != CKR_CRYPTOKI_NOT_INITIALIZED && outcome.bytes.empty() &&
                    (isDesktop() || outcome.rv != CKR_MECHANISM_INVALID))
                    _exit(2);
            _exit(0);
        });
        start(std::make_shared<vcard::PivCard>());
        login("123456");
        attribute(find(CKO_CERTIFICATE), CKA_SUBJECT);
        std::exit(1);
    };
    EXPECT_EXIT(exitWithHandler(), ::testing::ExitedWithCode(0), "");
}

TEST_F(LifeCycleTest, CallsAreTracedWithoutPins)
{
    TraceFile trace;
    const auto told = [&](const std::string& wanted) {
        const std::vector<std::string> lines = trace.news();
        return std::count(lines.begin(), lines.end(), wanted);
    };
    C_InitPIN(1, nullptr, 0); // its session is told after the test for the initialisation
    EXPECT_EQ(told("hSession :\t 1"), 0);
    C_Logout(1);
    EXPECT_EQ(told("hSession :\t 1"), 1);
    start(std::make_shared<vcard::PivCard>());
    EXPECT_EQ(told("CInitArg :\t 0"), 1);
    EXPECT_EQ(login("987654"), CKR_PIN_INCORRECT);
    EXPECT_EQ(setPin("987654", "987655"), CKR_PIN_INCORRECT);
    for (const std::string& line : trace.news()) {
        EXPECT_EQ(line.find("98765"), std::string::npos) << line;
        EXPECT_EQ(line.find("3938373635"), std::string::npos) << line;
    }
    C_Finalize(nullptr);
    fakepcsc::failCall("SCardIsValidContext", 0x8010ABCD); // no code of PC/SC's
    CK_C_INITIALIZE_ARGS arguments{};
    C_Initialize(&arguments);
    const std::vector<std::string> lines = trace.news();
    for (const char* line : {"*iargs :\t 0", "=> SCardIsValidContext return: 0x8010abcd"})
        EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
}

TEST_F(LifeCycleTest, FailuresBelowBecomeCodesAndPauseSessions)
{
    start(std::make_shared<vcard::PivCard>());
    ASSERT_EQ(open(), CKR_OK); // whose handle is no slot's ID
    const auto paused = [&] { return wrapper.sessions()->peekSession(m_session)->isPaused(); };
    const auto loginWhere = [this](const std::function<void()>& fails) {
        fakepcsc::beforeCall("SCardTransmit", 1, fails);
        return login("123456");
    };
    EXPECT_EQ(loginWhere([] { throw std::runtime_error("of another kind"); }), CKR_FUNCTION_FAILED);
    for (const CK_RV code :
         {CKR_PIN_EXPIRED, CKR_TOKEN_NOT_PRESENT, CKR_TOKEN_NOT_RECOGNIZED, CKR_DEVICE_REMOVED}) {
        EXPECT_EQ(loginWhere([code] { throw PKCS11Exception(code); }), code);
        EXPECT_EQ(paused(), code != CKR_PIN_EXPIRED);
    }
    EXPECT_EQ(login("123456"), CKR_OK);
    EXPECT_FALSE(paused());
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
    CK_FUNCTION_LIST* list = nullptr;
    C_GetFunctionList(&list);
    list->C_Initialize = list->C_Finalize = nullptr;
    std::string dropping;
#define NOTE_WHETHER_IT_DROPS(name)                                                                          \
    C_SignInit(m_session, &mechanism, key);                                                                  \
    PKCS11::Logger::SetLogger(new FailingLogger("C_" #name));                                                \
    EXPECT_EQ(list->C_##name != nullptr ? callWithZeros(list->C_##name, m_session) : CKR_GENERAL_ERROR,      \
              CKR_GENERAL_ERROR)                                                                             \
        << #name;                                                                                            \
    PKCS11::Logger::SetLogger(new FailingLogger("none"));                                                    \
    dropping += C_SignInit(m_session, &mechanism, key) == CKR_OK ? " " #name : "";
    QUARVEL_CRYPTOKI_FUNCTIONS(NOTE_WHETHER_IT_DROPS)
    EXPECT_EQ(dropping,
              " EncryptInit Encrypt EncryptUpdate EncryptFinal DecryptInit Decrypt DecryptUpdate DecryptFinal"
              " DigestInit Digest DigestUpdate DigestKey DigestFinal SignInit Sign SignUpdate SignFinal"
              " SignRecoverInit SignRecover VerifyInit Verify VerifyUpdate VerifyFinal VerifyRecoverInit"
              " VerifyRecover DigestEncryptUpdate DecryptDigestUpdate SignEncryptUpdate DecryptVerifyUpdate"
              " GenerateKey GenerateKeyPair WrapKey UnwrapKey DeriveKey");
    PKCS11::Logger::SetLogger(new PKCS11::FileLogger(SystemWrapper::s_logPath, kTraceOptions));
    PKCS11::Logger::SetLoglevel(99);
}

} // namespace
