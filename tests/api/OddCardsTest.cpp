// What changes for an application when a card holds or answers something odd, in a file beside this one.
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Expected.h"
#include "tests/support/TlvText.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/CardOSCard.h"
#include "tools/vcard/Families.h"
#include "tools/vcard/IasCard.h"
#include "tools/vcard/PivCard.h"

#include <map>
#include <regex>
#include <zlib.h>

namespace {

using vcard::IasCard;

struct Odd {
    const char* family;
    int at; ///< the file, or the number of the first of the answers
    std::string content;
    std::string step{}; ///< where the card answers so, answers being apart by commas; a file without one
};

std::string label(const std::string& text)
{
    return seq(text.empty() ? "" : tlv(0x0C, vcard::toHex(vcard::fromText(text))));
}
std::string pin(const std::string& name, const std::string& reference, const std::string& rules = "")
{
    return seq(label(name) + seq("040101") + tlv(0xA1, seq(rules + tlv(0x80, reference))));
}
std::string gzip(vcard::Bytes plain)
{
    vcard::Bytes packed(plain.size() + 100);
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

class OddCards : public CryptokiFixture {
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
        if (known == m_known.end() && !m_isPlain)
            return m_content.find(vcard::toHex(value.bytes)) != std::string::npos ? "as put" : "other";
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
        m_content = odd.content;
        if (odd.step.empty())
            change(*card, static_cast<unsigned short>(odd.at), scripted::bytes(odd.content));
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
                    fakepcsc::replaceAnswer(scripted::bytes(answer), nth);
            std::ostringstream text;
            text << std::hex;
            action(text);
            fakepcsc::forgetPlans();
            lines[name] = std::regex_replace(text.str() + trace.failures(), std::regex("\\(\\|\\)"), "");
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
                     << ":" << shown(attribute(object, CKA_START_DATE)) << "-"
                     << shown(attribute(object, CKA_END_DATE));
            });
        }
        for (int i = 0; const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, i); ++i) {
            const Bytes data =
                vcard::join({vcard::fromHex("3031300D060960864801650304020105000420"), Bytes(32)});
            step("sign " + std::to_string(i), [&](std::ostream& line) {
                line << std::dec << sign(key, CKM_RSA_PKCS, data, 1).length << std::hex << " ";
                const Outcome outcome = sign(key, CKM_RSA_PKCS, data);
                line << outcome.rv << " " << shown(outcome) << " " << fakepcsc::callCount("SCardTransmit");
            });
            step("decrypt " + std::to_string(i), [&](std::ostream& line) {
                line << decrypt(key, CKM_RSA_PKCS, data).rv << " " << fakepcsc::callCount("SCardTransmit");
            });
        }
        return lines;
    }

    std::vector<Bytes> m_known;
    bool m_isPlain = false;
    std::string m_content; ///< of the odd file
};

TEST_F(OddCards, ChangeWhatTheyMustOnly)
{
    if (isDesktop())
        GTEST_SKIP() << "the product's commands";
    const Bytes certificate = vcard::PivCard().certificate(0x9A);
    const std::string body = tlv(0x70, vcard::toHex(certificate));
    const std::string packed = tlv(0x70, gzip(certificate));
    const std::string noReference = seq(label("x") + seq("") + tlv(0xA1, seq("0401FF")));
    // The ID, usage, access flags and reference of a key, its first and last day.
    const std::string days = tlv(0x18, "32303235303130325A") + tlv(0xA0, tlv(0x18, "32303330313233315A"));
    const std::string noDay = tlv(0x18, "32303258303130325A");
    std::string keys;
    for (const unsigned tag : {0x30, 0xA0, 0xA1, 0xA2, 0xA3})
        keys += tlv(tag, label("K") + seq("04010103020102030204B002020091" + (tag == 0xA3 ? noDay : days)) +
                             tlv(0xA1, seq("300404023F0002020400")));
    const std::string modulus = "C15A5A5A5A5A5A5A5A5A5A5A5A5A5A5A";
    const auto contentOf = [](unsigned short file) {
        return vcard::toHex(vcard::CardOSCard().file(file).content);
    };
    std::vector<Odd> rows = {
        {"ias", IasCard::authentication, pin("PIN", "81") + pin("Other", "82") + pin("PUK", "83")},
        {"ias", IasCard::authentication, pin("MY PUK", "82") + pin("", "81")},
        {"ias", IasCard::authentication, pin("SO PIN", "82") + pin("PUK", "83")},
        {"ias", IasCard::authentication, noReference + pin("PIN", "81")},
        {"ias", IasCard::authentication, tlv(0xA0, label("x") + seq("")) + pin("", "018205")},
        {"ias", IasCard::authentication,
         pin("PIN", "0081", "020105 020108 02010C 0401FF") + pin("PUK", "82")},
        {"ias", IasCard::authentication, pin("PIN", "81", "020105 02010C 0401EE")},
        {"ias", IasCard::authentication, "3080"},
        {"ias", IasCard::tokenInfo, ""},
        {"ias", IasCard::odf, "31"},
        {"ias", IasCard::certificates, "333333333333"},
        {"ias", IasCard::publicKeys, ""},
        {"ias", IasCard::privateKeys, "AAAAAAAA"},
        {"ias", IasCard::dataObjects, "0400"},
        {"ias", 0xD003, "5A03 AABBCC"},
        {"ias", 0xD003, "5A04 AABBCC"},
        {"ias", 0xD003, "5B01AA"},
        {"ias", 0xB001, "3003020105 FFFF"},
        {"ias", 3, "6A82", "1:01"},
        {"ias", IasCard::privateKeys, seq(label("K") + seq("0401AA") + tlv(0xA1, seq(seq("") + "02020400")))},
        {"ias", IasCard::publicKeys, keys},
        {"ias", 3, "70810C BFA0018107 7F4904 8102C1C2 9000", "2:01"},
        {"ias", 3, "700C BFA00108 7F4905 8102C1C2 82 9000", "2:01"}, // broken off
        {"ias", 3, "700A BFA00206 7F4903 8101C1 9000", "2:01"},      // another key
        {"ias", 3, "710B BFA00107 7F4904 8102C1C2 9000", "2:01"},
        {"ias", 3, "700D BFA00109 8102C1C2 3003 020501 9000", "2:01"},
        {"ias", 3, "7004 BFA00180 9000", "2:01"},
        {"cardos", 0x0001, contentOf(0x0001).substr(0, 34)}, // ends within its third entry, or behind it
        {"cardos", 0x0001, contentOf(0x0001).substr(0, 36)},
        {"cardos", 0x0001, std::string(960, '0') + contentOf(0x0001)}, // nothing counts behind 80 entries
        {"cardos", 0x0101, contentOf(0x0101).replace(contentOf(0x0101).size() - 8, 2, "03")},
        {"cardos", 0x0102, contentOf(0x0102).substr(0, 10)},
        {"cardos", 5, "6981,7F4916 021100" + modulus + "020103 9000", "2:45"},
        {"cardos", 5, "6981,7F4916 0211 9000", "3:45"}, // cut off: no modulus, and no signature
        {"cardos", 5, "100100 9000", "2:45"}, // a record without a number is no reason to read the file
        {"cardos", 5, "6A82", "sign 0"},
        {"cardos", 3, "6A82", "sign 0"},
        {"cardos", 2, "6A82", "1:45"},
        // The sign byte counts as nothing.
        {"cardos-v5", 4, "7F4918 811100" + modulus + "82030100019000", "2:45"},
        {"cardos-v5", 4, "7F4918 811100" + modulus + "82030100019000", "3:45"},
        {"atrust", 3, "6F00 9000,3004020105 9000", "1:44465F444543"},
        {"atrust", 3, "6F00 9000,3003020105 9999 9000", "1:44465F444543"},
        {"piv", 2, "9001,7C038201779001", "sign 0"},
        {"piv", 2, "6883", "sign 0"},
        {"piv", 2, "9000,6982", "sign 0"},
        {"piv", 2, "7C04820211229001", "sign 1"},
        {"piv", 2, "7C0582036103,1122339000", "sign 1"},
        {"piv", 2, "6982", "sign 1"},
        {"piv", 2, "7C04829000", "sign 1"},
        {"piv", 5, tlv(0x7E, body)},
        {"piv", 5, "53827FFF" + body},
        {"piv", 5, tlv(0x53, body + "710100 FE00" + tlv(0x7F49, "50014C 83020102"))},
        {"piv", 5, tlv(0x53, packed + "710101")},
        {"piv", 5, tlv(0x53, packed + "710180")}, // as older cards say it
        {"piv", 5, tlv(0x53, packed)},
        {"piv", 5, tlv(0x53, tlv(0x70, gzip(Bytes(65537))) + "710101")},
        {"piv", 5, "5382FFFF" + body}, // a negative length
        {"piv", 5, "538201"},
        {"piv", 5, tlv(0x54, body)},
    };
    // The versions of CardOS; older cards are asked for the package with longer keys behind 22 more commands.
    std::istringstream versions("C802 C803 C804 C805 C806 C807 C808 C809 C80A C80B C80C C80D C901 C902");
    for (std::string version; versions >> version;)
        rows.push_back({"cardos", 2,
                        version + "9000,000123459000" + std::string(24, ',') +
                            (version < "C804" ? "E10901041C02C8068F010177 9000" : "E1 9000"),
                        "token"});
    rows.push_back({"cardos", 2, "C8039000,000123459000" + std::string(24, ',') + "6A88", "token"});
    std::ostringstream text;
    std::map<std::string, Lines> usual;
    for (const Odd& odd : rows) {
        if (usual.count(odd.family) == 0)
            usual[odd.family] = shown({odd.family, 0, "", "plain"});
        const Lines lines = shown(odd);
        text << odd.family << (odd.step.empty() ? "" : " " + odd.step) << " " << std::hex << odd.at << ": "
             << (odd.content.size() < 200 ? odd.content : "...");
        const Lines& before = usual[odd.family];
        std::string gone;
        for (const auto& [name, line] : lines)
            if (before.count(name) == 0 || before.at(name) != line)
                text << " | " << name << " = " << line;
        for (const auto& [name, line] : before)
            gone += lines.count(name) == 0 ? " " + name : "";
        text << (gone.empty() ? "" : " | no" + gone) << "\n";
    }
    expectFile("api/OddCardsTest.txt", text.str());
}

} // namespace
