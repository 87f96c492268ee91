// What calls answer, write into the trace and send to the card, on each family, in files beside this one.
#include "pkcs11/frontend/trace/Names.h"
#include "tests/support/Expected.h"
#include "tests/support/FamilyFixture.h"
#include "tests/support/TraceFile.h"

#include <cstring>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <winscard.h>

namespace {

class ProductCallsTest : public FamilyFixture {
protected:
    /// The key pair of a modulus or a certificate, by its number among those of the simulated cards.
    static std::string keyOf(const Bytes& value)
    {
        const PublicKeyHandle certified = publicKeyOf(value);
        for (const int pair : kKeyPairs) {
            const vcard::RsaKey& key = vcard::RsaKey::get(1024, pair);
            if (value == key.modulus() ||
                (certified && EVP_PKEY_eq(certified.get(), publicKeyOf(key.certificate("Any")).get()) == 1))
                return " of key " + std::to_string(pair);
        }
        return "";
    }
    /// How many VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER reached a card.
    static long pinCommands()
    {
        const std::vector<fakepcsc::Call> calls = fakepcsc::calls();
        return std::count_if(calls.begin(), calls.end(), [](const fakepcsc::Call& call) {
            return call.result == 0 && call.command.size() > 1 &&
                   (call.command[1] == 0x20 || call.command[1] == 0x24 || call.command[1] == 0x2C);
        });
    }
    /// Uses of the card that succeed on most.
    struct Use {
        const char* name;
        std::function<CK_RV()> run;
    };
    std::vector<Use> uses(const Family& family)
    {
        const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY), theirs = find(CKO_PUBLIC_KEY);
        const Bytes data = m_digestInfo, signature = sign(mine, CKM_RSA_PKCS, data).bytes;
        const auto owner = publicKeyOf(vcard::RsaKey::get(1024, family.keyPair).certificate("Any"));
        const Bytes block = encryptFor(owner, data);
        const char* const soPin = family.soPin;
        return {{"log in", [this] { return C_Logout(m_session), login("123456"); }},
                {"sign", [=] { return sign(mine, CKM_RSA_PKCS, data).rv; }},
                {"decrypt", [=] { return decrypt(mine, CKM_RSA_PKCS, block).rv; }},
                {"encrypt", [=] { return encrypt(theirs, CKM_RSA_PKCS, data).rv; }},
                {"verify", [=] { return verify(theirs, CKM_RSA_PKCS, data, signature); }},
                {"change the PIN and sign",
                 [=] {
                     const CK_RV rv = setPin("123456", "123456");
                     return rv != CKR_OK ? rv : sign(mine, CKM_RSA_PKCS, data).rv;
                 }},
                {"administrate", [this, soPin] {
                     C_Logout(m_session);
                     const CK_RV rv = login(soPin, CKU_SO);
                     const CK_RV init = initPin("123456");
                     return rv != CKR_OK ? rv : init != CKR_OK ? init : setPin(soPin, soPin);
                 }}};
    }
    /// Codes by call, in hexadecimal, and the texts of their failures.
    std::string codes(const Family& family, TraceFile& trace)
    {
        begin(family);
        trace.news();
        const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY), theirs = find(CKO_PUBLIC_KEY);
        CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
        CK_BYTE in[8] = {1, 2, 3}, out[512];
        CK_ULONG length = sizeof out;
        CK_OBJECT_HANDLE made = 0, second = 0;
        CK_OBJECT_CLASS kind = CKO_DATA;
        CK_ATTRIBUTE entry{CKA_CLASS, &kind, sizeof kind};
        Bytes label(32, 0x41);
        std::string text;
        const auto note = [&](const std::string& name, const std::vector<CK_RV>& rvs) {
            text += name;
            for (const CK_RV rv : rvs)
                text += hex(rv);
            text += " " + trace.failures() + "\n";
        };
        std::vector<CK_RV> create;
        for (kind = CKO_DATA; kind <= CKO_SECRET_KEY + 1; ++kind)
            create.push_back(C_CreateObject(m_session, &entry, 1, &made));
        note("create", create);
        kind = CKO_DATA;
        note("copy", {C_CopyObject(m_session, mine, &entry, 1, &made)});
        note("digest",
             {C_DigestInit(m_session, &rsa), C_DigestUpdate(m_session, in, 8), C_DigestKey(m_session, mine)});
        note("generate", {C_GenerateKey(m_session, &rsa, &entry, 1, &made),
                          C_GenerateKeyPair(m_session, &rsa, &entry, 1, nullptr, 0, &made, &second)});
        note("derive", {C_DeriveKey(m_session, &rsa, mine, &entry, 1, &made)});
        note("wrap", {C_WrapKey(m_session, &rsa, theirs, mine, out, &length),
                      C_UnwrapKey(m_session, &rsa, mine, in, 8, &entry, 1, &made)});
        note("random", {C_SeedRandom(m_session, in, 8), C_GenerateRandom(m_session, out, 8)});
        note("recover",
             {C_SignRecoverInit(m_session, &rsa, mine), C_SignRecover(m_session, in, 8, out, &length),
              C_VerifyRecoverInit(m_session, &rsa, theirs),
              C_VerifyRecover(m_session, in, 8, nullptr, &length)});
        note("two at once", {C_DigestEncryptUpdate(m_session, in, 8, out, &length),
                             C_DecryptDigestUpdate(m_session, in, 8, out, &length),
                             C_SignEncryptUpdate(m_session, in, 8, out, &length),
                             C_DecryptVerifyUpdate(m_session, in, 8, out, &length)});
        note("states", {C_GetOperationState(m_session, out, &length),
                        C_SetOperationState(m_session, in, 8, mine, theirs), C_GetFunctionStatus(m_session),
                        C_CancelFunction(m_session)});
        const auto size = [&](CK_OBJECT_HANDLE object) {
            return C_GetObjectSize(m_session, object, &length);
        };
        note("sizes", {size(mine), size(theirs), size(find(CKO_CERTIFICATE)), CK_RV{length > 100}, length = 0,
                       size(find(CKO_DATA)), length});
        // Parts: a first update, what a question for the length gets, the end.
        length = sizeof out;
        note("sign in parts",
             {C_SignInit(m_session, &rsa, mine), C_SignUpdate(m_session, in, 8),
              C_SignFinal(m_session, nullptr, &length), C_SignFinal(m_session, out, &length)});
        note("decrypt in parts",
             {C_DecryptInit(m_session, &rsa, mine), C_DecryptUpdate(m_session, in, 8, out, &length), length,
              C_DecryptFinal(m_session, out, &(length = sizeof out))});
        note("encrypt in parts",
             {C_EncryptInit(m_session, &rsa, theirs), C_EncryptUpdate(m_session, in, 8, out, &length), length,
              C_EncryptFinal(m_session, out, &(length = sizeof out))});
        note("verify in parts", {C_VerifyInit(m_session, &rsa, theirs), C_VerifyUpdate(m_session, in, 8),
                                 C_VerifyFinal(m_session, in, 8)});
        const auto reopen = [&] { again(), trace.failures(); };
        reopen();
        fakepcsc::clearCalls();
        std::vector<CK_RV> lengths;
        const auto ask = [&](auto init, auto step, CK_OBJECT_HANDLE key) {
            length = 0;
            lengths.push_back(init(m_session, &rsa, key));
            step(m_session, in, 8, nullptr, &length);
            lengths.push_back(length);
        };
        ask(C_SignInit, C_Sign, mine);
        reopen();
        ask(C_DecryptInit, C_Decrypt, mine);
        reopen();
        ask(C_EncryptInit, C_Encrypt, theirs);
        lengths.push_back(fakepcsc::sentAPDUs().size());
        note("lengths, and commands until there", lengths);
        reopen();
        const auto refuse = [](const char* status) { return [=](int nth) { answer(status, nth); }; };
        const auto before = [](int nth, const std::function<void()>& action) {
            fakepcsc::beforeCall("SCardTransmit", nth, action);
        };
        const auto reset = [this] { fakepcsc::resetCard(m_reader); };
        const auto exchange = [&] { fakepcsc::insertCard(m_reader, family.make()); };
        const std::pair<const char*, std::function<void(int)>> disturbances[] = {
            {"refused with 6A80", refuse("6A80")},
            {"refused with 63C2", refuse("63C2")},
            {"refused with 6983", refuse("6983")},
            {"refused with 6C08", refuse("6C08")}, // no modulus ends with an even byte
            {"refused with 63C2 after a reset", [&](int nth) { before(nth, reset), refuse("63C2")(nth); }},
            {"refused with 6A82 after a reset of the first",
             [&](int nth) { before(1, reset), refuse("6A82")(nth); }},
            {"refused with 63C2 at last, reset before and after",
             [&](int nth) { before(nth, reset), before(nth + 1, reset), refuse("63C2")(nth + 1); }},
            {"unresponsive",
             [](int nth) { fakepcsc::failCall("SCardTransmit", SCARD_W_UNRESPONSIVE_CARD, nth); }},
            {"exchanged", [&](int nth) { before(nth, exchange); }},
            {"and reset", [&](int nth) { before(nth, exchange), before(nth + 1, reset); }}};
        for (const Use& use : uses(family)) { // with the handles of a user who is logged in
            reopen();
            fakepcsc::clearCalls();
            text += use.name + hex(use.run());
            text += trace.failures();
            const int commands = fakepcsc::callCount("SCardTransmit");
            for (const auto& [what, disturb] : disturbances) {
                text += std::string(", ") + what + ":";
                for (int nth = 1; nth <= commands; ++nth) {
                    reopen();
                    fakepcsc::clearCalls();
                    disturb(nth);
                    text += hex(use.run());
                    text += "/" + std::to_string(pinCommands()) + trace.failures();
                    fakepcsc::forgetPlans();
                }
            }
            text += "\n";
        }
        reopen();
        Bytes tooLong(70000); // for any card; who is logged out is told of that
        note("logged out", {C_SignInit(m_session, &rsa, mine),
                            C_Logout(m_session),
                            C_Sign(m_session, tooLong.data(), 70000, out, &(length = sizeof out)),
                            login("123456"),
                            C_DecryptInit(m_session, &rsa, mine),
                            C_Logout(m_session),
                            C_Decrypt(m_session, tooLong.data(), 70000, out, &(length = sizeof out)),
                            login("123456"),
                            C_SignInit(m_session, &rsa, mine),
                            C_Logout(m_session),
                            C_Sign(m_session, in, 8, nullptr, &(length = 1)),
                            C_Sign(m_session, in, 8, out, &(length = 1)),
                            login("123456"),
                            C_DecryptInit(m_session, &rsa, mine),
                            C_Logout(m_session),
                            C_Decrypt(m_session, in, 8, nullptr, &(length = 1)),
                            C_Decrypt(m_session, in, 8, out, &(length = 1)),
                            C_EncryptInit(m_session, &rsa, theirs),
                            C_Encrypt(m_session, in, 8, nullptr, &(length = 1)),
                            C_Encrypt(m_session, in, 8, out, &(length = 1)),
                            encrypt(theirs, CKM_RSA_PKCS, {1}).rv,
                            verify(theirs, CKM_RSA_PKCS, {1}, {1})});
        text += "PIN change refused with 6A80, and a signature after a reset:";
        CK_RV changed = CKR_CANCEL;
        for (int nth = 1; changed != CKR_OK && nth < 10; ++nth) {
            reopen();
            refuse("6A80")(nth);
            text += hex(changed = setPin("123456", "654321"));
            fakepcsc::forgetPlans();
            fakepcsc::clearCalls();
            before(1, reset);
            text += hex(sign(mine, CKM_RSA_PKCS, m_digestInfo).rv);
            text += "/" + std::to_string(pinCommands()) + trace.failures();
        }
        text += hex(setPin("654321", "123456")) + "\n";
        // With so many objects in the end.
        const auto begins = [&](int nth, const std::function<void(int)>& disturb) {
            fakepcsc::resetCard(m_reader);
            fakepcsc::clearCalls();
            disturb(nth);
            CK_TOKEN_INFO info{};
            text += hex(C_GetTokenInfo(1, &info));
            text += trace.failures();
            const int commands = fakepcsc::callCount("SCardTransmit");
            fakepcsc::forgetPlans();
            reopen();
            text += "/" + std::to_string(findAll().size());
            return nth <= commands;
        };
        text += "begin, refused with 6A82:";
        for (int nth = 1; begins(nth, refuse("6A82")); ++nth)
            ;
        text += ", lost after a reset:";
        const auto lose = [&](int nth) {
            before(nth, reset), fakepcsc::failCall("SCardReconnect", SCARD_F_COMM_ERROR);
        };
        for (int nth = 1; begins(nth, lose); ++nth)
            ;
        text += ", reset after each connection:";
        begins(1, [&](int) {
            for (int nth = 1; nth < 9; ++nth)
                fakepcsc::beforeCall("SCardConnect", nth, [&] { before(1, reset); });
        });
        text += ", held by another program:";
        for (int nth = 1; nth <= 3; ++nth)
            begins(nth, [](int n) { fakepcsc::failCall("SCardConnect", SCARD_E_SHARING_VIOLATION, n); });
        text += "\n";
        trace.failures();
        note("token", {C_InitToken(1, in, 8, label.data())});
        return text;
    }
};

/// Of a family only what is not as in one before.
TEST_F(ProductCallsTest, EachCallHasItsCode)
{
    TraceFile trace;
    std::set<std::string> families, before;
    std::string shown;
    for (const Family& family : kFamilies) {
        if (!families.insert(family.name).second)
            continue;
        std::istringstream lines(codes(family, trace));
        shown += family.title() + "\n";
        for (std::string line; std::getline(lines, line);)
            if (before.insert(line).second)
                shown += line + "\n";
    }
    expectFile("api/calls.codes", shown);
}

/// The commands that a use sends, if any: of long ones, whose data differ in each run, the header and the
/// number of further bytes, and of GET RESPONSE, whose Le does, the instruction.
TEST_F(ProductCallsTest, EachUseSendsItsCommands)
{
    std::string shown;
    const auto note = [&](const std::string& name) {
        std::string line;
        for (std::string apdu : fakepcsc::sentAPDUs()) {
            apdu = std::regex_replace(apdu, std::regex(vcard::toHex(m_digestInfo)), "(data)");
            const bool isLong = apdu.size() > 60;
            line += " " + apdu.substr(0, isLong ? 10 : apdu.rfind("00C0", 0) == 0 ? 4 : apdu.npos);
            line += isLong ? "+" + std::to_string(apdu.size() / 2 - 5) : "";
        }
        shown += line.empty() ? "" : name + line + "\n";
        fakepcsc::clearCalls();
    };
    for (const Family& family : kFamilies) {
        shown += family.title() + "\n";
        begin(family);
        note("begin");
        for (const CK_OBJECT_HANDLE object : findAll())
            for (const CK_ATTRIBUTE_TYPE type : {CKA_MODULUS, CKA_VALUE})
                attribute(object, type);
        note("read");
        for (const Use& use : uses(family)) {
            fakepcsc::clearCalls();
            use.run();
            note(use.name);
        }
    }
    expectFile("api/calls.commands", shown);
}

/// Token, mechanisms and objects as an application sees them, a line for each; what is made anew for each run
/// is just there.
TEST_F(ProductCallsTest, EachFamilyShowsItsTokenAndObjects)
{
    std::string shown;
    for (const Family& family : kFamilies) {
        begin(family);
        const CK_TOKEN_INFO info = tokenInfo();
        std::ostringstream token;
        token << family.title() << ": " << std::string(info.label, info.label + 96) << std::hex << info.flags
              << std::dec << " " << info.ulMaxSessionCount << " " << info.ulMaxRwSessionCount << " "
              << info.ulMinPinLen << "-" << info.ulMaxPinLen << " "
              << static_cast<long>(info.ulTotalPublicMemory) << " "
              << static_cast<long>(info.ulFreePublicMemory) << " "
              << static_cast<long>(info.ulTotalPrivateMemory) << " "
              << static_cast<long>(info.ulFreePrivateMemory) << " " << int{info.hardwareVersion.major} << " "
              << int{info.firmwareVersion.major} << "\n";
        shown += token.str() + mechanisms() + "\n";
        for (const CK_OBJECT_HANDLE object : findAll()) {
            std::map<CK_ATTRIBUTE_TYPE, CK_BYTE> changes;
            for (CK_ATTRIBUTE_TYPE type = 0; type < 0x200; ++type) {
                const Outcome value = attribute(object, type);
                if (value.rv != CKR_OK)
                    continue;
                if (value.length == 0 || type == CKA_MODULUS)
                    changes[type] = static_cast<CK_BYTE>(changes.size() + 1);
                const bool isNumber = type == CKA_CLASS || type == CKA_KEY_TYPE || type == CKA_MODULUS_BITS ||
                                      type == CKA_CERTIFICATE_TYPE;
                std::string name = PKCS11::attributeType2string_ne(type);
                name = name.empty() ? std::to_string(type) : name;
                if (value.length > 30 || type == CKA_SERIAL_NUMBER || type == CKA_EC_POINT)
                    shown += name + " is there" + keyOf(value.bytes) + "; ";
                else
                    shown += name + "=" +
                             (isNumber            ? std::to_string(number(object, type))
                              : type == CKA_LABEL ? text(object, type)
                                                  : vcard::toHex(value.bytes)) +
                             "; ";
            }
            for (auto& [type, byte] : changes) {
                CK_ATTRIBUTE entry{type, &byte, 1};
                C_SetAttributeValue(m_session, object, &entry, 1);
            }
            for (const auto& [type, byte] : changes)
                shown += attribute(object, type).bytes == Bytes{byte} ? "set; " : "not set; ";
            shown += "\n";
        }
        fakepcsc::clearCalls(); // it is known by now
        tokenInfo();
        for (const CK_OBJECT_HANDLE object : findAll())
            for (const CK_ATTRIBUTE_TYPE type : {CKA_VALUE, CKA_MODULUS, CKA_SUBJECT})
                attribute(object, type);
        EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0) << family.title();
        fakepcsc::removeCard(m_reader);
        EXPECT_EQ(number(1, CKA_CLASS), 0U);
        EXPECT_EQ(fakepcsc::open().handles, 0) << family.title();
    }
    expectFile("api/calls.objects", shown);
}

/// The first block of each call in the trace, a line for a call; numbers that stand for addresses taken out.
TEST_F(ProductCallsTest, TheTraceShowsEachCallWithItsArgumentsAndResults)
{
    TraceFile trace;
    codes(familyNamed("cardos"), trace);
    CK_INFO info;
    CK_SLOT_INFO slot;
    CK_TOKEN_INFO token;
    CK_SESSION_INFO session;
    CK_MECHANISM_INFO mechanism;
    const auto fill = [](auto&... records) { (std::memset(&records, 0xFF, sizeof records), ...); };
    fill(info, slot, token, session, mechanism);
    CK_MECHANISM_TYPE types[20] = {};
    CK_ULONG count = 20;
    CK_SLOT_ID id = 0;
    CK_FUNCTION_LIST* functions = nullptr;
    EXPECT_EQ(C_GetFunctionList(&functions), CKR_OK);
    EXPECT_EQ(C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(info.libraryDescription[31], ' '); // behind a zero byte
    EXPECT_EQ(C_GetSlotList(CK_TRUE, &id, &count), CKR_OK);
    EXPECT_EQ(C_GetSlotInfo(1, &slot), CKR_OK);
    CK_SESSION_HANDLE readOnly = 0;
    EXPECT_EQ(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &readOnly), CKR_OK);
    trace.news();
    EXPECT_EQ(C_GetTokenInfo(1, &token), CKR_OK);
    std::vector<std::string> told = trace.news();
    EXPECT_EQ(std::count(told.begin(), told.end(), "pInfo->ulRwSessionCount :\t 1"), 1);
    EXPECT_EQ(std::count(told.begin(), told.end(), "pInfo->ulSessionCount :\t 2"), 1);
    EXPECT_EQ(C_OpenSession(1, 0, nullptr, nullptr, &readOnly), CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    told = trace.news();
    EXPECT_EQ(*++std::find(told.begin(), told.end(), "flags :\t 0"), ""); // the names of none
    Bytes value(3000, 0x55);
    CK_ATTRIBUTE unknown{CKA_CLASS, value.data(), value.size()};
    EXPECT_EQ(all({C_FindObjectsInit(m_session, &unknown, 1), C_FindObjectsFinal(m_session)}), CKR_OK);
    told = trace.news();
    EXPECT_EQ(std::count(told.begin(), told.end(), "\t Template[0].Value: \t" + std::string(4096, '5')), 1);
    count = 20;
    EXPECT_EQ(C_GetMechanismList(1, types, &count), CKR_OK);
    EXPECT_EQ(C_GetMechanismInfo(1, CKM_RSA_PKCS, &mechanism), CKR_OK);
    EXPECT_EQ(C_GetSessionInfo(m_session, &session), CKR_OK);
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, &id, nullptr), CKR_NO_EVENT);
    EXPECT_EQ(C_GetAttributeValue(m_session, 2, nullptr, 0), CKR_OK);
    EXPECT_EQ(C_SetAttributeValue(m_session, 2, nullptr, 1), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(C_DestroyObject(m_session, 1), CKR_OK);
    CK_BYTE byte = 0;
    EXPECT_EQ(C_Verify(m_session, &byte, 1, &byte, 1), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_Digest(m_session, &byte, 1, &byte, &count), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_DigestFinal(m_session, &byte, nullptr), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);

    const std::regex kVaries("0x[0-9a-f]{6,}|:\t -?[0-9]{5,}|ulValueLen: \t" +
                             std::to_string(sizeof(CK_ULONG)));
    std::map<std::string, std::string> blocks;
    std::string name;
    for (const std::string& line : trace.lines()) {
        EXPECT_TRUE(name != "." || line.empty());
        if (line == "C_Finalize" || line == "C_GetObjectSize")
            blocks.erase(line); // the last one has something to end, or an answer
        if (line == std::string(40, '-'))
            name = "?";
        else if (name == ".")
            name.clear();
        else if (name == "?")
            name = blocks.count(line) == 0 && line.rfind("C_", 0) == 0 ? line : "";
        if (name.size() > 1)
            blocks[name] += std::regex_replace(line, kVaries, "#") + " | ";
        if (line.rfind(name + " return: ", 0) == 0)
            name = "."; // after the end
    }
    blocks.erase("C_Initialize"); // what goes on beneath depends on what was before
    std::string shown;
    for (const auto& [call, block] : blocks)
        shown += block + "\n";
    expectFile("api/calls.trace", shown);
}

} // namespace
