// What lengths of data, room and PINs change, on each family, in calls.limits beside this file.
#include "tests/support/Expected.h"
#include "tests/support/FamilyFixture.h"
#include "tests/support/TraceFile.h"

#include <functional>
#include <map>
#include <regex>
#include <set>

namespace {

class ProductLimitsTest : public FamilyFixture {
protected:
    /// What a use gives from each number on: its code, the commands sent, how the last one begins ("+" when
    /// it is an extended one), and the texts of failures.
    std::string limits(const std::vector<int>& numbers, TraceFile& trace,
                       const std::function<CK_RV(int)>& use)
    {
        std::string text, last;
        for (const int number : numbers) {
            again();
            trace.failures();
            fakepcsc::clearCalls();
            std::string outcome = hex(use(number));
            const std::vector<std::string> sent = fakepcsc::sentAPDUs();
            outcome += "/" + std::to_string(sent.size());
            if (!sent.empty())
                outcome += " " + sent.back().substr(0, 8) + (sent.back().substr(8, 2) == "00" ? "+" : "");
            outcome += std::regex_replace(trace.failures(), std::regex("\\(\\|\\)"), "");
            if (outcome != last)
                text += " " + std::to_string(number) + ":" + outcome + ";";
            last = outcome;
            fakepcsc::forgetPlans();
        }
        return text;
    }
};

/// Of data, room and PINs; of a family only what is not as in one before.
TEST_F(ProductLimitsTest, EachUseHasItsLimits)
{
    const std::vector<int> lengths = {0,   1,   2,     115,   116,   117,   118,   119,  120, 121, 122,
                                      123, 124, 125,   126,   127,   128,   129,   241,  242, 247, 248,
                                      249, 250, 251,   252,   253,   254,   255,   256,  257, 258, 493,
                                      494, 495, 65518, 65519, 65520, 65521, 65535, 65536};
    const std::vector<int> rooms = {1, 19, 20, 21, 127, 128, 129};
    const std::vector<int> pins = {0, 1, 3, 4, 7, 8, 9, 10, 11, 16, 17, 247, 248, 255, 256};
    TraceFile trace;
    std::set<std::string> before;
    std::string shown;
    for (const Family& family : kFamilies) {
        begin(family);
        const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY), theirs = find(CKO_PUBLIC_KEY);
        const auto owner = publicKeyOf(vcard::RsaKey::get(1024, family.keyPair).certificate("Any"));
        const Bytes block = encryptFor(owner, Bytes(20, 1));
        std::map<std::string, std::string> lines;
        const auto note = [&](const std::string& name, const char* kind, const std::vector<int>& numbers,
                              const std::function<CK_RV(int)>& use) {
            lines[name] += std::string(" ") + kind + limits(numbers, trace, use);
        };
        for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_RSA_X_509}) {
            const char* const kind = type == CKM_RSA_PKCS ? "padded" : "raw";
            note("sign", kind, lengths, [=](int n) { return sign(mine, type, Bytes(n, 1)).rv; });
            note("decrypt", kind, lengths, [=](int n) { return decrypt(mine, type, Bytes(n, 1)).rv; });
            note("encrypt", kind, lengths, [=](int n) { return encrypt(theirs, type, Bytes(n, 1)).rv; });
            note("verify", kind, lengths, [=](int n) { return verify(theirs, type, Bytes(n, 1), block); });
            note("verify", "by", lengths, [=](int n) { return verify(theirs, type, block, Bytes(n, 1)); });
        }
        note("room", "to sign", rooms, [=](int n) { return sign(mine, CKM_RSA_PKCS, {1}, n).rv; });
        note("room", "to decrypt", rooms, [=](int n) { return decrypt(mine, CKM_RSA_PKCS, block, n).rv; });
        note("room", "to encrypt", rooms, [=](int n) { return encrypt(theirs, CKM_RSA_PKCS, {1}, n).rv; });
        const Bytes tooMuch(70000, 1);
        note("room", "for too much: sign", {1},
             [=](int n) { return sign(mine, CKM_RSA_PKCS, tooMuch, n).rv; });
        note("room", "decrypt", {1}, [=](int n) { return decrypt(mine, CKM_RSA_PKCS, tooMuch, n).rv; });
        note("room", "encrypt", {1}, [=](int n) { return encrypt(theirs, CKM_RSA_PKCS, tooMuch, n).rv; });
        attribute(theirs, CKA_MODULUS);
        note("room", "by a known key", rooms,
             [=](int n) { return encrypt(theirs, CKM_RSA_PKCS, {1}, n).rv; });
        const auto present = [&](const char* user, const char* kind,
                                 const std::function<CK_RV(std::string)>& use) {
            note(user, kind, pins, [&](int n) { // to a card that likes each PIN
                for (int nth = 1; nth < 20; ++nth)
                    answer("9000", nth);
                return use(std::string(n, '1'));
            });
        };
        const std::string good(6, '1');
        for (const CK_USER_TYPE user : {CKU_USER, CKU_SO}) {
            const char* const name = user == CKU_SO ? "SO PIN" : "PIN";
            const auto enter = [=](const std::string& pin) { return C_Logout(m_session), login(pin, user); };
            present(name, "to log in", enter);
            present(name, "to change", [=](const auto& pin) { return enter(good), setPin(pin, good); });
            present(name, "anew", [=](const auto& pin) { return enter(good), setPin(good, pin); });
            present(name, "for the user", [=](const auto& pin) { return enter(good), initPin(pin); });
        }
        shown += family.title() + "\n";
        for (const auto& [name, line] : lines)
            if (before.insert(name + line).second)
                shown += name + line + "\n";
    }
    expectFile("api/calls.limits", shown);
}

} // namespace
