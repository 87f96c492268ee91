// One life of an application on a card of each family, disturbed at each of its PC/SC calls and allocations.
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Families.h"
#include "tests/support/ScarceMemory.h"

#include <map>
#include <set>
#include <winscard.h>

namespace {

using vcard::Bytes;

/// A card with the PIN that its holder knows. Counts the tries that were lost.
class HeldCard final : public vcard::Card {
public:
    HeldCard(const Family& family, const char* pin) : m_pin(pin), m_firstPin(pin), m_card(family.make(pin)) {}
    Bytes atr() const override { return m_card->atr(); }
    void reset() override { m_card->reset(); }
    Bytes transmit(const Bytes& command) override
    {
        if (std::exchange(m_refuses, false))
            return {0x6F, 0x00};
        Bytes answer = m_card->transmit(command);
        m_lostTries += command.size() > 5 && answer.at(answer.size() - 2) == 0x63 ? 1 : 0;
        m_keptPin = m_keptPin || (command.at(1) == 0x24 && answer == Bytes{0x90, 0x00});
        return std::exchange(m_isMute, false) ? Bytes() : answer;
    }

    bool m_refuses = false; ///< the next command
    bool m_isMute = false;  ///< when it has executed the next command
    bool m_keptPin = false; ///< a new one
    std::string m_pin;
    const std::string m_firstPin;
    int m_lostTries = 0;

private:
    std::unique_ptr<vcard::Card> m_card;
};

/// What the steps of a life gave, by name: a value or a failure.
struct Life {
    std::map<std::string, Bytes> values;
    std::map<std::string, CK_RV> failures;
};

/// An application knows from these what to do: try again (the first two), look for a card, open a session,
/// log in, search, or start the operation anew.
const std::set<CK_RV> kUsefulCodes = {CKR_GENERAL_ERROR,        CKR_DEVICE_ERROR,
                                      CKR_DEVICE_REMOVED,       CKR_TOKEN_NOT_PRESENT,
                                      CKR_TOKEN_NOT_RECOGNIZED, CKR_SESSION_HANDLE_INVALID,
                                      CKR_USER_NOT_LOGGED_IN,   CKR_OBJECT_HANDLE_INVALID,
                                      CKR_KEY_HANDLE_INVALID,   CKR_OPERATION_NOT_INITIALIZED};

class SweepTest : public CryptokiFixture, public ::testing::WithParamInterface<Family> {
protected:
    using Held = std::shared_ptr<HeldCard>;
    /// A key as it showed itself in peace.
    struct KnownKey {
        CK_OBJECT_HANDLE handle;
        bool isPrivate;
        const vcard::RsaKey* pair;
        Bytes message; ///< for the owner of the private key; empty when it does not decrypt
        bool encrypts, verifies;
    };

    /// The desktop edition and emulated processors are looked at here and there: the drivers are the same.
    const int m_pace = isDesktop() || std::getenv("QUARVEL_EMULATED") != nullptr ? 3 : 1;

    void SetUp() override
    {
        CryptokiFixture::SetUp();
        m_reader = fakepcsc::addReader("Reader 0");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        setEduVariant(GetParam().eduVariant);
    }
    void TearDown() override
    {
        EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
        EXPECT_EQ(fakepcsc::open().handles, m_leaks);
    }
    void insert(const Held& card)
    {
        m_present = card;
        fakepcsc::insertCard(m_reader, card);
    }

    // --- The life ---

    void step(const std::string& name, CK_RV rv, Bytes value = {})
    {
        if (rv == CKR_OK)
            m_life.values[name] = std::move(value);
        else
            m_life.failures[name] = rv;
    }
    void step(const std::string& name, const Outcome& outcome) { step(name, outcome.rv, outcome.bytes); }
    /// A step that shows the PIN of the card that is in the reader when it begins.
    template <class Call>
    void pinStep(const std::string& name, Call call)
    {
        const Held card = m_present;
        const CK_RV rv = call(card != nullptr ? card->m_pin : "123456");
        // Only where the card was exchanged inside the call another one may have seen that PIN.
        m_refusedPins += rv == CKR_PIN_INCORRECT && card != m_present ? 1 : 0;
        if (rv != CKR_PIN_INCORRECT || card == m_present)
            step(name, rv);
    }
    /// To "88888888", or back.
    void changePin(const std::string& name, bool back)
    {
        pinStep(name, [&](const std::string& from) {
            const Held card = m_present;
            const std::string fresh = back && card != nullptr ? card->m_firstPin : "88888888";
            const CK_RV rv = setPin(from, fresh);
            if (card != nullptr && std::exchange(card->m_keptPin, false)) {
                card->m_pin = fresh;
                m_untoldPins += rv != CKR_OK ? 1 : 0;
            }
            return rv;
        });
    }
    void search(const std::string& when)
    {
        CK_OBJECT_HANDLE objects[40] = {};
        CK_ULONG count = 0;
        CK_RV rv = C_FindObjectsInit(m_session, nullptr, 0);
        step("search " + when, rv);
        if (rv != CKR_OK)
            return; // an earlier search, which could not be ended, would go on
        rv = C_FindObjects(m_session, objects, 40, &count);
        step("found " + when, rv, Bytes(objects, objects + count));
        step("end of search " + when, C_FindObjectsFinal(m_session));
    }
    void readAll(CK_OBJECT_HANDLE object)
    {
        constexpr CK_ATTRIBUTE_TYPE kTypes[] = {
            CKA_CLASS,           CKA_LABEL, CKA_ID,      CKA_PRIVATE, CKA_KEY_TYPE, CKA_MODULUS,
            CKA_PUBLIC_EXPONENT, CKA_SIGN,  CKA_DECRYPT, CKA_ENCRYPT, CKA_SUBJECT,  CKA_ISSUER,
            CKA_SERIAL_NUMBER,   CKA_VALUE};
        std::vector<Bytes> rooms(std::size(kTypes), Bytes(1024));
        std::vector<CK_ATTRIBUTE> wanted;
        for (size_t i = 0; i < rooms.size(); ++i)
            wanted.push_back({kTypes[i], rooms[i].data(), rooms[i].size()});
        const CK_RV rv = C_GetAttributeValue(m_session, object, wanted.data(), wanted.size());
        Bytes all;
        for (size_t i = 0; i < rooms.size(); ++i) {
            const bool known = wanted[i].ulValueLen != CK_UNAVAILABLE_INFORMATION;
            rooms[i].resize(known ? wanted[i].ulValueLen : 0);
            all = vcard::join({all, {static_cast<unsigned char>(i), known}, rooms[i]});
        }
        // No object has them all.
        step("object " + std::to_string(object), rv == CKR_ATTRIBUTE_TYPE_INVALID ? CKR_OK : rv, all);
    }
    void use(const KnownKey& key, const std::string& when)
    {
        const std::string name = when + " key " + std::to_string(key.handle);
        if (key.isPrivate)
            step(name + " signs", sign(key.handle, CKM_RSA_PKCS, m_digestInfo));
        if (key.isPrivate && !key.message.empty())
            step(name + " decrypts", decrypt(key.handle, CKM_RSA_PKCS, key.message));
        if (key.encrypts) {
            // The separator and the data; the filler may differ each time.
            const Outcome secret = encrypt(key.handle, CKM_RSA_PKCS, m_digestInfo);
            const scarce::Plenty plenty;
            const Bytes block = key.pair->privateOperation(secret.bytes);
            const std::size_t filler = block.size() - std::min(block.size(), m_digestInfo.size() + 1);
            step(name + " encrypts", secret.rv, {block.data() + filler, block.data() + block.size()});
        }
        if (key.verifies)
            step(name + " verifies", verify(key.handle, CKM_RSA_PKCS, m_digestInfo, m_signature));
    }
    Life live()
    {
        m_life = {};
        CK_ULONG count = 1;
        CK_SLOT_ID slot = 0;
        CK_TOKEN_INFO info{};
        CK_RV rv = C_GetSlotList(CK_TRUE, &slot, &count);
        step("slots", rv, Bytes(count));
        rv = C_GetTokenInfo(1, &info);
        step("token", rv, Bytes(info.label, info.label + 96));
        step("open", open());
        m_made = static_cast<int>(fakepcsc::calls().size()) + 1;
        search("in public");
        pinStep("login", [&](const std::string& pin) { return login(pin); });
        search("by the user");
        for (CK_OBJECT_HANDLE object = 1; object <= m_objects; ++object)
            readAll(object);
        for (const KnownKey& key : m_keys)
            use(key, "first");
        changePin("new PIN", false);
        changePin("old PIN", true);
        if (!m_keys.empty())
            use(m_keys.front(), "then");
        step("logout", C_Logout(m_session));
        step("close", C_CloseSession(m_session));
        return m_life;
    }
    /// What the present card offers.
    void learn()
    {
        ASSERT_EQ(open(), CKR_OK);
        ASSERT_EQ(login(m_present->m_pin), CKR_OK);
        EXPECT_EQ(setPin("000000", "88888888"), CKR_PIN_INCORRECT); // which is not the login's PIN then
        m_present->m_lostTries = 0;
        m_objects = findAll().size();
        for (CK_OBJECT_HANDLE object = 1; object <= m_objects; ++object) {
            const CK_ULONG kind = number(object, CKA_CLASS);
            const Bytes modulus = attribute(object, CKA_MODULUS).bytes;
            for (const int number : kKeyPairs) {
                const vcard::RsaKey& pair = vcard::RsaKey::get(1024, number);
                if (modulus != pair.modulus() || (kind != CKO_PRIVATE_KEY && kind != CKO_PUBLIC_KEY))
                    continue;
                KnownKey key{object, kind == CKO_PRIVATE_KEY,
                             &pair,  encryptFor(publicKeyOf(pair.certificate("Any")), m_digestInfo),
                             false,  false};
                if (key.isPrivate && decrypt(object, CKM_RSA_PKCS, key.message).rv != CKR_OK)
                    key.message.clear();
                const Outcome signature =
                    key.isPrivate ? sign(object, CKM_RSA_PKCS, m_digestInfo) : Outcome();
                EXPECT_EQ(signature.rv, CKR_OK);
                if (key.isPrivate)
                    m_signature = signature.bytes;
                key.encrypts = !key.isPrivate && encrypt(object, CKM_RSA_PKCS, m_digestInfo).rv == CKR_OK;
                key.verifies =
                    !key.isPrivate && verify(object, CKM_RSA_PKCS, m_digestInfo, m_signature) == CKR_OK;
                m_keys.push_back(key);
                break;
            }
        }
        ASSERT_EQ(C_CloseSession(m_session), CKR_OK);
    }
    /// Values are those of the card that was there or is there now, codes such as an application can act on.
    void expectRight(const Life& life, const Held& then, const Held& now)
    {
        const auto isIn = [](const Life& peace, const std::string& step, const Bytes& value) {
            const auto found = peace.values.find(step);
            return found != peace.values.end() && found->second == value;
        };
        for (const auto& [step, value] : life.values) {
            // To the desktop edition a reader that is out of order is empty.
            const bool maySeemEmpty = m_present == nullptr || isDesktop();
            bool right = step == "slots" && maySeemEmpty && value.empty();
            for (const Held& card : {then, now}) {
                right = right || isIn(m_peace[card], step, value);
                // Whether the user is logged in the other calls tell.
                for (const char* when : {"in public", "by the user"})
                    right = right || (step.rfind("found", 0) == 0 &&
                                      isIn(m_peace[card], std::string("found ") + when, value));
            }
            EXPECT_TRUE(right) << step << " gave " << vcard::toHex(value);
        }
        for (const auto& [step, code] : life.failures)
            EXPECT_TRUE(kUsefulCodes.count(code) != 0 || m_peace[now].failures.count(step) != 0 ||
                        (m_isShort && code == CKR_FUNCTION_FAILED))
                << step << " gave " << std::hex << code;
    }
    /// The life until an allocation of its own fails.
    Life liveShortly()
    {
        try {
            live();
        } catch (const std::bad_alloc&) {
        }
        scarce::left = 0;
        return m_life;
    }
    void expectPeaceAgain()
    {
        EXPECT_EQ(C_CloseAllSessions(1), CKR_OK);
        const Life again = live();
        for (const auto& [step, code] : again.failures)
            EXPECT_NE(m_peace[m_present].failures.count(step), 0U)
                << step << " gave " << std::hex << code << " later";
        EXPECT_TRUE(again.values == m_peace[m_present].values);
    }
    /// The life on this card in peace.
    Life inPeace(const Held& card)
    {
        insert(card);
        fakepcsc::clearCalls();
        return live();
    }

    Held m_present;
    Life m_life;
    bool m_isShort = false; ///< memory
    int m_refusedPins = 0;
    int m_untoldPins = 0; ///< that a card has kept
    int m_made = 0;       ///< the first call after the making of the token
    int m_leaks = 0;      ///< handles whose disconnection failed
    CK_ULONG m_objects = 0;
    std::vector<KnownKey> m_keys;
    Bytes m_signature;
    std::map<Held, Life> m_peace;
};

} // namespace

TEST_P(SweepTest, NothingIsLostWhateverHappensWhenever)
{
    const auto own = std::make_shared<HeldCard>(GetParam(), "123456");
    const auto another = std::make_shared<HeldCard>(GetParam(), "654321");
    const auto stranger = std::make_shared<HeldCard>(
        familyNamed(GetParam().name == std::string("piv") ? "ias" : "piv"), "654321");
    insert(own);
    ASSERT_NO_FATAL_FAILURE(learn());
    m_peace = {{stranger, inPeace(stranger)}, {another, inPeace(another)}, {own, inPeace(own)}};
    const std::vector<fakepcsc::Call> peace = fakepcsc::calls();
    const int built = m_made, calls = static_cast<int>(peace.size());
    EXPECT_TRUE(m_peace[own].failures.empty());
    for (const KnownKey& key : m_keys)
        EXPECT_TRUE(!key.isPrivate ||
                    isSignature(publicKeyOf(key.pair->certificate("Any")), m_digestInfo,
                                m_peace[own].values["first key " + std::to_string(key.handle) + " signs"]));

    constexpr LONG kCodes[] = {SCARD_F_COMM_ERROR, SCARD_E_NO_SERVICE, SCARD_W_UNPOWERED_CARD,
                               SCARD_W_RESET_CARD, SCARD_E_INVALID_HANDLE};
    const auto fail = [&](int nth, int times) { fakepcsc::failCall("", kCodes[nth % 5], nth, times); };
    const auto before = [](int nth, const std::function<void()>& action) {
        fakepcsc::beforeCall("", nth, action);
    };
    const auto reset = [&] { fakepcsc::resetCard(m_reader); };
    const auto remove = [&] { m_present = nullptr, fakepcsc::removeCard(m_reader); };
    const struct {
        std::string name;
        int stride, shortStride; ///< the latter where memory ends too; 0: nowhere
        std::function<void(int)> plan;
    } disturbances[] = {
        {"one call fails", 1, 0, [&](int nth) { fail(nth, 1); }},
        {"two calls fail", 1, 0, [&](int nth) { fail(nth, 2); }},
        {"one call fails, and the fifth after it", 1, 0, [&](int nth) { fail(nth, 1), fail(nth + 5, 1); }},
        {"the reader fails", 1, 0, [&](int nth) { before(nth, reset), fail(nth, 5); }},
        {"reset", 1, 0, [&](int nth) { before(nth, reset); }},
        {"removed", 1, 2, [&](int nth) { before(nth, remove); }},
        {"another PIN", 1, 0, [&](int nth) { before(nth, [&] { insert(another); }); }},
        {"another PIN, and then a reset", 1, 0,
         [&](int nth) { before(nth, [&] { insert(another); }), before(nth + 4, reset); }},
        {"another PIN, reset too", 2, 2, [&](int nth) { before(nth, [&] { insert(another), reset(); }); }},
        {"another PIN, reset too, and then a call fails", 1, 0,
         [&](int nth) { before(nth, [&] { insert(another), reset(); }), fail(nth + 2, 1); }},
        {"another family", 3, 0, [&](int nth) { before(nth, [&] { insert(stranger); }); }},
        {"put in again", 3, 0, [&](int nth) { before(nth, [&] { insert(own); }); }},
        {"an answer is lost", 1, 1, [&](int nth) { before(nth, [&] { own->m_isMute = true; }); }},
        {"a refusal", 1, 0, [&](int nth) { before(nth, [&] { own->m_refuses = true; }); }},
    };
    const auto sweep = [&](const auto& disturbance) {
        // What a card refuses while its token is made is not there.
        const bool isRefusal = disturbance.name == "a refusal";
        const bool isCards = isRefusal || disturbance.name == "an answer is lost";
        const int first = isRefusal ? built : 1;
        const int stride = m_isShort ? disturbance.shortStride : disturbance.stride;
        for (int nth = first; nth <= calls && !HasFailure(); nth += m_pace * stride) {
            if (isCards && peace[nth - 1].name != "SCardTransmit")
                continue;
            insert(own);
            fakepcsc::clearCalls();
            disturbance.plan(nth);
            if (m_isShort)
                before(nth, [] { scarce::next = 1; });
            const Life life = liveShortly();
            fakepcsc::forgetPlans();
            own->m_refuses = own->m_isMute = false;
            const std::vector<fakepcsc::Call> made = fakepcsc::calls();
            const std::string call = made.at(nth - 1).name;
            SCOPED_TRACE(disturbance.name + (m_isShort ? " and no memory" : "") + " at call " +
                         std::to_string(nth) + ", " + call);
            bool isTaken = false, isGivenBack = true;
            for (const fakepcsc::Call& one : made) {
                const bool isEnd = one.name == "SCardEndTransaction";
                m_leaks += one.name == "SCardDisconnect" && one.result != 0 ? 1 : 0;
                isTaken = !isEnd && (isTaken || (one.name == "SCardBeginTransaction" && one.result == 0));
                isGivenBack = isEnd ? one.result == 0 : isGivenBack;
                EXPECT_TRUE(one.name != "SCardDisconnect" || !isTaken);
            }
            if (!isRefusal)
                expectRight(life, own, m_present == nullptr ? own : m_present);
            for (const auto& [step, code] : life.failures) // a command with a new PIN is sent once
                EXPECT_TRUE(disturbance.name != "reset" || m_isShort ||
                            (call != "SCardTransmit" && !isDesktop()) || step == "new PIN" ||
                            step == "old PIN")
                    << step;
            int lost = 0;
            for (const Held& card : {own, another, stranger})
                lost += std::exchange(card->m_lostTries, 0);
            EXPECT_EQ(lost, std::exchange(m_refusedPins, 0));
            EXPECT_TRUE(fakepcsc::open().transactions == 0 || !isGivenBack); // others may use the card
            if (life.failures.empty() && m_present == own && !isRefusal)
                continue;
            // Left open for loading a card computes nothing.
            const Bytes& command = made.at(nth - 1).command;
            if (isRefusal && !isDesktop() && !command.empty() && (command[1] == 0xDA || command[1] == 0x10))
                continue;

            if (m_present == nullptr)
                insert(own);
            expectPeaceAgain();
        }
    };
    for (const bool isShort : {false, true}) {
        m_isShort = isShort;
        for (const auto& disturbance : disturbances)
            if (!isShort || disturbance.shortStride != 0)
                sweep(disturbance);
    }
}

TEST_P(SweepTest, NothingIsLostWhereverMemoryEnds)
{
    const auto own = std::make_shared<HeldCard>(GetParam(), "123456");
    insert(own);
    ASSERT_NO_FATAL_FAILURE(learn());
    m_peace = {{own, inPeace(own)}};
    m_isShort = true;
    std::vector<std::size_t> places;
    insert(own);
    scarce::places = &places;
    live();
    scarce::places = nullptr;
    std::set<std::size_t> known;
    for (std::size_t i = 0; i < places.size() && !HasFailure(); ++i) {
        if (!known.insert(places[i]).second || known.size() % m_pace != 0)
            continue;
        SCOPED_TRACE("allocation " + std::to_string(i));
        insert(own);
        fakepcsc::clearCalls();
        scarce::left = static_cast<int>(i) + 1;
        expectRight(liveShortly(), own, own);
        EXPECT_EQ(fakepcsc::open().transactions, 0);
        EXPECT_EQ(m_untoldPins, 0);
        expectPeaceAgain();
        EXPECT_EQ(own->m_lostTries, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Families, SweepTest, ::testing::ValuesIn(kFamilies), [](const auto& family) {
    std::string name = family.param.name;
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
    return name + (name == "edu" ? std::to_string(family.param.eduVariant) : "");
});
