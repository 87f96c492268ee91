// What changes for an application when a card holds or answers something odd, in a file beside this one.
#include "tests/support/Certificates.h"
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Expected.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/CardOSCard.h"
#include "tools/vcard/Families.h"
#include "tools/vcard/IasCard.h"
#include "tools/vcard/PivCard.h"

#include <map>
#include <regex>
#include <zlib.h>

namespace {

using vcard::Bytes;
using vcard::IasCard;

/// A row of the file: "family step at: content", and after it what is not as usual.
struct Odd {
    std::string family, step; ///< where the card answers so; a file without one
    int at;                   ///< the file, or the number of the first of the answers
    std::string content;      ///< answers are apart by commas
};

std::string gzip(Bytes plain)
{
    Bytes packed(plain.size() + 100);
    z_stream stream{};
    deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    stream.next_in = plain.data();
    stream.avail_in = static_cast<uInt>(plain.size());
    stream.next_out = packed.data();
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return vcard::toHex(packed);
}

class ProductOddCardsTest : public CryptokiFixture {
protected:
    using Lines = std::map<std::string, std::string>;

    static void change(vcard::Card& card, unsigned short file, const Bytes& content)
    {
        if (auto* piv = dynamic_cast<vcard::PivCard*>(&card))
            piv->putObject(static_cast<unsigned char>(file), content);
        else if (auto* ias = dynamic_cast<IasCard*>(&card))
            ias->file(file).content = content;
        else
            dynamic_cast<vcard::CardOSCard&>(card).file(file).content = content;
    }
    /// Short ones as they are, long ones, which each run makes anew, by the order in which they came.
    std::string shown(const Outcome& value)
    {
        if (value.rv != CKR_OK)
            return "-";
        if (value.bytes.size() <= 24)
            return vcard::toHex(value.bytes);
        const size_t derLength = 4 + 256 * value.bytes[2] + value.bytes[3];
        if (publicKeyOf(value.bytes) && value.bytes.size() == derLength)
            return "certificate";
        auto known = std::find(m_known.begin(), m_known.end(), value.bytes);
        const auto put =
            std::search(m_content.begin(), m_content.end(), value.bytes.begin(), value.bytes.end());
        if (known == m_known.end() && !m_isPlain)
            return put != m_content.end() ? "put at " + std::to_string(put - m_content.begin()) : "other";
        if (known == m_known.end())
            known = m_known.insert(known, value.bytes);
        return "#" + std::to_string(known - m_known.begin());
    }
    Lines shown(const Odd& odd)
    {
        TearDown();
        SetUp();
        TraceFile trace;
        std::shared_ptr<vcard::Card> card = vcard::findFamily(odd.family)->make({});
        m_isPlain = odd.step == "plain";
        if (odd.step.empty()) {
            m_content = bytes(odd.content);
            change(*card, static_cast<unsigned short>(odd.at), m_content);
        }
        m_reader = fakepcsc::addReader("Reader 0");
        fakepcsc::insertCard(m_reader, card);
        EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
        Lines lines;
        const auto step = [&](const std::string& name, const auto& action) {
            fakepcsc::clearCalls();
            std::istringstream answers(odd.step == name ? odd.content : "");
            int nth = odd.at;
            for (std::string answer; std::getline(answers, answer, ','); ++nth)
                if (!answer.empty())
                    fakepcsc::replaceAnswer(bytes(answer), nth);
            const auto outcome = [&] {
                std::ostringstream text;
                text << std::hex;
                action(text);
                return std::regex_replace(text.str() + trace.failures(), std::regex("\\(\\|\\)"), "");
            };
            lines[name] = outcome();
            fakepcsc::forgetPlans();
            fakepcsc::clearCalls();
            if (const std::string then = outcome(); then != lines[name]) // in peace
                lines[name] += ", then " + then;
            for (char& letter : lines[name]) // of a serial number that is none
                letter = letter > 0 && letter < ' ' ? static_cast<char>('@' + letter) : letter;
        };
        CK_RV rv = CKR_OK;
        step("token", [&](std::ostream& text) {
            CK_TOKEN_INFO info{};
            CK_MECHANISM_INFO rsa{};
            text << (rv = C_GetTokenInfo(1, &info));
            C_GetMechanismInfo(1, CKM_RSA_PKCS, &rsa);
            if (rv == CKR_OK && open() == CKR_OK)
                text << " " << std::string(info.manufacturerID, info.serialNumber + 16) << std::dec << " "
                     << info.ulMinPinLen << "-" << info.ulMaxPinLen << " "
                     << static_cast<long>(info.ulFreePrivateMemory) << " " << rsa.ulMaxKeySize << " "
                     << findAll().size() << " objects";
        });
        if (rv != CKR_OK)
            return lines;
        for (const CK_USER_TYPE user : {CKU_SO, CKU_USER})
            step(user == CKU_SO ? "SO" : "user", [&](std::ostream& text) {
                text << login("1234", user);
                if (fakepcsc::callCount("SCardTransmit") != 0)
                    text << " " << fakepcsc::sentAPDUs().back();
            });
        step("login", [&](std::ostream& text) { text << login("123456"); });
        for (const CK_OBJECT_HANDLE object : findAll()) {
            std::string name =
                std::to_string(number(object, CKA_CLASS)) + ":" + shown(attribute(object, CKA_ID));
            while (lines.count(name) != 0)
                name += "'";
            step(name, [&](std::ostream& line) {
                line << shown(attribute(object, CKA_MODULUS)) << " " << shown(attribute(object, CKA_VALUE))
                     << " " << text(object, CKA_LABEL) << ":" << number(object, CKA_KEY_TYPE) << ":"
                     << shown(attribute(object, CKA_PUBLIC_EXPONENT)) << ":" << std::dec
                     << number(object, CKA_MODULUS_BITS) << ":" << shown(attribute(object, CKA_SUBJECT))
                     << ":" << shown(attribute(object, CKA_ISSUER)) << ":"
                     << shown(attribute(object, CKA_START_DATE)) << "-"
                     << shown(attribute(object, CKA_END_DATE)) << ":"
                     << shown(attribute(object, CKA_OBJECT_ID)) << ":";
                for (const CK_ATTRIBUTE_TYPE use : {CKA_SIGN, CKA_DECRYPT, CKA_VERIFY, CKA_ENCRYPT})
                    line << number(object, use);
                line << " " << fakepcsc::callCount("SCardTransmit");
            });
        }
        for (int i = 0; const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, i); ++i) {
            step("sign " + std::to_string(i), [&](std::ostream& line) {
                line << std::dec << sign(key, CKM_RSA_PKCS, m_digestInfo, 1).length << std::hex << " ";
                const Outcome outcome = sign(key, CKM_RSA_PKCS, m_digestInfo);
                line << outcome.rv << " " << shown(outcome) << " " << fakepcsc::callCount("SCardTransmit");
            });
            step("decrypt " + std::to_string(i), [&](std::ostream& line) {
                line << decrypt(key, CKM_RSA_PKCS, m_digestInfo).rv << " "
                     << fakepcsc::callCount("SCardTransmit");
            });
        }
        for (const char* pin : {"", "123456"})
            step(std::string("new PIN ") + pin, [&](std::ostream& line) {
                line << setPin("123456", pin) << " " << fakepcsc::sentAPDUs().size();
            });
        step("first PIN", [&](std::ostream& line) {
            Bytes pin = vcard::fromText("123456");
            C_Logout(m_session);
            line << login(odd.family == "ias" ? "87654321" : "12345678", CKU_SO) << " ";
            for (const CK_ULONG length : {0U, 6U})
                line << C_InitPIN(m_session, pin.data(), length) << " " << fakepcsc::sentAPDUs().size()
                     << " ";
        });
        return lines;
    }

    std::vector<Bytes> m_known;
    bool m_isPlain = false;
    Bytes m_content; ///< of the odd file
};

TEST_F(ProductOddCardsTest, ChangeWhatTheyMustOnly)
{
    const Bytes certificate = vcard::PivCard().certificate(0x9A);
    const std::pair<const char*, std::string> words[] = {
        {"<certificate>", vcard::toHex(certificate)},
        {"<issued certificate>", PKCS11::PKCS11_blob2hex(::certificate("ec.der"))},
        {"<gzip of it>", gzip(certificate)},
        {"<gzip of zeros>", gzip(Bytes(65536))},
        {"<gzip of one more>", gzip(Bytes(65537))}};
    std::map<std::string, Lines> usual;
    expectLines("api/OddCardsTest.txt", [&](const std::string& row) {
        std::smatch parts;
        EXPECT_TRUE(std::regex_match(row, parts, std::regex("(\\S+) (?:(.+) )?(\\w+):(.*)"))) << row;
        Odd odd{parts[1], parts[2], std::stoi(parts[3], nullptr, 16), parts[4]};
        for (const auto& [word, content] : words)
            odd.content = std::regex_replace(odd.content, std::regex(word), content);
        if (usual.count(odd.family) == 0)
            usual[odd.family] = shown({odd.family, "plain", 0, ""});
        const Lines lines = shown(odd);
        const Lines& before = usual[odd.family];
        std::string text, gone;
        for (const auto& [name, line] : lines)
            if (before.count(name) == 0 || before.at(name) != line)
                text += " | " + name + " = " + line;
        for (const auto& [name, line] : before)
            gone += lines.count(name) == 0 ? " " + name : "";
        text += gone.empty() ? "" : " | no" + gone;
        return text.substr(std::min<size_t>(text.size(), 2));
    });
}

} // namespace
