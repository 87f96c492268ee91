// A life of an application on a card of each family that another program resets, or somebody exchanges,
// before each of its commands.
#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/Families.h"
#include "tools/vcard/Keys.h"

namespace {

const char* const kFamilies[] = {"piv", "cardos", "cardos-v5", "ias", "atrust"};
constexpr char kPin[] = "123456";

class DisturbanceTest : public CryptokiFixture {
protected:
    /// What the application saw: values as they are, and whether the signature stood up.
    struct Life {
        CK_RV worst = CKR_OK;
        std::vector<Bytes> values;
        bool isSigned = false;
    };
    static std::shared_ptr<vcard::Card> make(const std::string& family, const std::string& pin)
    {
        vcard::CardOptions options;
        options.pin = pin;
        return vcard::findFamily(family)->make(options);
    }
    void begin(const std::shared_ptr<vcard::Card>& card)
    {
        fakepcsc::reset();
        m_reader = fakepcsc::addReader("Reader");
        fakepcsc::insertCard(m_reader, card);
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        fakepcsc::clearCalls();
    }
    CK_RV note(Life& life, CK_RV rv)
    {
        if (rv != CKR_OK)
            life.worst = rv;
        return rv;
    }
    /// Everything once: a session, the login, all values, a signature.
    Life live(const std::string& pin = kPin)
    {
        Life life;
        if (note(life, open()) != CKR_OK || note(life, login(pin)) != CKR_OK)
            return life;
        CK_OBJECT_HANDLE handles[100];
        CK_ULONG count = 0;
        if (note(life, C_FindObjectsInit(m_session, nullptr, 0)) != CKR_OK ||
            note(life, C_FindObjects(m_session, handles, 100, &count)) != CKR_OK ||
            note(life, C_FindObjectsFinal(m_session)) != CKR_OK)
            return life;
        CK_OBJECT_HANDLE key = 0;
        Bytes modulus;
        for (CK_ULONG i = 0; i < count; ++i) {
            const CK_ULONG kind = number(handles[i], CKA_CLASS);
            const bool isKey = kind == CKO_PRIVATE_KEY || kind == CKO_PUBLIC_KEY;
            const Outcome value = attribute(handles[i], isKey ? CKA_MODULUS : CKA_VALUE);
            note(life, value.rv);
            life.values.push_back(value.bytes);
            if (kind == CKO_PRIVATE_KEY && key == 0) {
                key = handles[i];
                modulus = value.bytes;
            }
        }
        const Bytes data =
            vcard::join({vcard::fromHex("3031300D060960864801650304020105000420"), Bytes(32, 0x5A)});
        const Outcome signature = sign(key, CKM_RSA_PKCS, data);
        if (note(life, signature.rv) == CKR_OK) {
            const Bytes block = vcard::RsaKey::publicOperation(modulus, {1, 0, 1}, signature.bytes);
            life.isSigned =
                block.size() > data.size() && std::equal(data.rbegin(), data.rend(), block.rbegin());
        }
        return life;
    }
};

TEST_F(DisturbanceTest, AResetAtAnyCommandCostsNothing)
{
    for (const std::string family : kFamilies) {
        const auto card = make(family, kPin);
        begin(card);
        const Life whole = live();
        const int commands = fakepcsc::callCount("SCardTransmit");
        EXPECT_EQ(whole.worst, CKR_OK);
        EXPECT_TRUE(whole.isSigned) << family;
        C_Finalize(nullptr);
        for (int nth = 1; nth <= commands; ++nth) {
            SCOPED_TRACE(family + ", command " + std::to_string(nth));
            begin(card);
            fakepcsc::beforeCall("SCardTransmit", nth, [&] { fakepcsc::resetCard(m_reader); });
            const Life life = live();
            EXPECT_EQ(life.worst, CKR_OK);
            EXPECT_TRUE(life.values == whole.values);
            EXPECT_TRUE(life.isSigned);
            C_Finalize(nullptr);
        }
    }
}

TEST_F(DisturbanceTest, APinNeverGoesToAnotherCard)
{
    for (const std::string family : kFamilies) {
        begin(make(family, kPin));
        live();
        const int commands = fakepcsc::callCount("SCardTransmit");
        C_Finalize(nullptr);
        for (int nth = 1; nth <= commands; ++nth) {
            SCOPED_TRACE(family + ", command " + std::to_string(nth));
            begin(make(family, kPin));
            const auto other = make(family, "654321");
            fakepcsc::beforeCall("SCardTransmit", nth, [&] { fakepcsc::insertCard(m_reader, other); });
            live();
            for (int times = 0; times < 4; ++times) // each would cost a try
                sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, Bytes(20));
            C_CloseAllSessions(1);
            const Life life = live("654321");
            EXPECT_EQ(life.worst, CKR_OK);
            EXPECT_TRUE(life.isSigned);
            C_Finalize(nullptr);
        }
    }
}

TEST_F(DisturbanceTest, AStepWithoutItsTokenEndsTheOperation)
{
    begin(make("piv", kPin));
    ASSERT_EQ(open(), CKR_OK);
    ASSERT_EQ(login(kPin), CKR_OK);
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    CK_BYTE signature[512];
    CK_ULONG length = sizeof signature;
    ASSERT_EQ(C_SignInit(m_session, &mechanism, find(CKO_PRIVATE_KEY)), CKR_OK);
    fakepcsc::failCall("SCardGetStatusChange", 0x80100001L);
    EXPECT_EQ(C_Sign(m_session, signature, 20, signature, &length), CKR_DEVICE_ERROR);
    EXPECT_EQ(C_SignInit(m_session, &mechanism, find(CKO_PRIVATE_KEY)), CKR_OK);
}

} // namespace
