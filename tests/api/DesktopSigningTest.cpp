#include "tests/support/Certificates.h"
#include "tests/support/FamilyFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <numeric>
#include <openssl/ecdsa.h>
#include <openssl/err.h>

namespace {

struct Hash {
    CK_MECHANISM_TYPE mechanism;
    CK_ULONG mask;
    const EVP_MD* digest;
};
const Hash kSha1{CKM_SHA_1, CKG_MGF1_SHA1, EVP_sha1()};
const Hash kSha224{CKM_SHA224, CKG_MGF1_SHA224, EVP_sha224()};
const Hash kSha256{CKM_SHA256, CKG_MGF1_SHA256, EVP_sha256()};
const Hash kSha384{CKM_SHA384, CKG_MGF1_SHA384, EVP_sha384()};
const Hash kSha512{CKM_SHA512, CKG_MGF1_SHA512, EVP_sha512()};

/// Stands for the length of a signature by the key.
constexpr CK_ULONG kSize = 1U << 20U;

/// So many bytes signed with a mechanism into so much room; the rest counts for PSS.
struct Way {
    CK_MECHANISM_TYPE type;
    CK_ULONG length;
    CK_ULONG room = 1024;
    const Hash &hash = kSha256, &mask = kSha256;
    CK_ULONG salt = 32;
};

/// What the edition for desktop programs signs with, in the families that it adds to.
class DesktopSigningTest : public FamilyFixture {
protected:
    /// Starts anew with the user logged in.
    void begin(const std::shared_ptr<vcard::Card>& card)
    {
        TearDown();
        SetUp();
        start(card);
        ASSERT_EQ(login("123456"), CKR_OK);
    }
    static std::shared_ptr<vcard::PivCard> pivWith(std::vector<vcard::PivSlot> keys)
    {
        vcard::PivOptions options;
        options.slots = std::move(keys);
        return std::make_shared<vcard::PivCard>(options);
    }
    CK_RV part(Bytes data) { return C_SignUpdate(m_session, data.data(), data.size()); }
    Outcome signInParts(CK_OBJECT_HANDLE key, CK_MECHANISM mechanism, const Bytes& data, CK_ULONG room)
    {
        const CK_RV rv = C_SignInit(m_session, &mechanism, key);
        if (rv != CKR_OK)
            return {rv, {}, 0};
        *static_cast<CK_RSA_PKCS_PSS_PARAMS*>(mechanism.pParameter) = {}; // the caller's to reuse
        const auto middle = data.begin() + static_cast<long>(data.size() / 2);
        EXPECT_EQ(part({data.begin(), middle}), CKR_OK);
        EXPECT_EQ(part(Bytes(0x10000 - data.size() / 2 + 1)), CKR_DATA_LEN_RANGE);
        EXPECT_EQ(part({middle, data.end()}), CKR_OK);
        Outcome result;
        EXPECT_EQ(C_SignFinal(m_session, nullptr, &result.length), CKR_OK);
        result.bytes.resize(result.length);
        result.length = std::min(room, result.length);
        result.rv = C_SignFinal(m_session, result.bytes.data(), &result.length);
        result.bytes.resize(std::min<size_t>(result.bytes.size(), result.length));
        return result;
    }
    /// libcrypto's verdict, which takes no other length of salt.
    static bool isGood(const PublicKeyHandle& owner, const Way& way, Bytes data, Bytes signature)
    {
        const Context context = contextOf(owner);
        EVP_PKEY_verify_init(context.get());
        if (way.type == CKM_ECDSA) { // r and s, each half of the signature
            const auto half = static_cast<int>(signature.size() / 2);
            const CryptoPointer<ECDSA_SIG, ECDSA_SIG_free> numbers(ECDSA_SIG_new());
            ECDSA_SIG_set0(numbers.get(), BN_bin2bn(signature.data(), half, nullptr),
                           BN_bin2bn(signature.data() + half, half, nullptr));
            signature.resize(256);
            unsigned char* at = signature.data();
            signature.resize(static_cast<size_t>(i2d_ECDSA_SIG(numbers.get(), &at)));
        } else if (way.type == CKM_RSA_PKCS_PSS) {
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PSS_PADDING);
            EVP_PKEY_CTX_set_signature_md(context.get(), way.hash.digest);
            EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), way.mask.digest);
            EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), static_cast<int>(way.salt));
        } else if (way.type == CKM_RSA_X_509) { // after zeros
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING);
            data.insert(data.begin(), signature.size() - data.size(), 0x00);
        }
        return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), data.data(), data.size()) ==
               1;
    }
    /// "ok" or "bad" or a code in hexadecimal.
    std::string signedBy(CK_OBJECT_HANDLE key, const PublicKeyHandle& owner, Way way, bool inParts)
    {
        const bool isCurve = EVP_PKEY_get_base_id(owner.get()) == EVP_PKEY_EC;
        const auto bits = static_cast<CK_ULONG>(EVP_PKEY_get_bits(owner.get()));
        const CK_ULONG size = isCurve ? bits / 4 : (bits + 7) / 8;
        for (CK_ULONG* const length : {&way.length, &way.room, &way.salt})
            *length -= *length > kSize / 2 ? kSize - size : 0;
        Bytes data(way.length);
        std::iota(data.begin(), data.end(), 1);
        CK_RSA_PKCS_PSS_PARAMS parameters{way.hash.mechanism, way.mask.mask, way.salt};
        const CK_MECHANISM mechanism{way.type, &parameters,
                                     way.type == CKM_RSA_PKCS_PSS ? sizeof parameters : 0};
        fakepcsc::clearCalls();
        const Outcome outcome =
            inParts ? signInParts(key, mechanism, data, way.room) : sign(key, mechanism, data, way.room);
        EXPECT_TRUE(outcome.rv != CKR_BUFFER_TOO_SMALL || outcome.length == size);
        if (outcome.rv == CKR_OK)
            return isGood(owner, way, data, outcome.bytes) ? " ok" : " bad";
        return hex(outcome.rv) + (fakepcsc::callCount("SCardTransmit") != 0 ? "!" : "");
    }
};

TEST_F(DesktopSigningTest, KeysOfEachKindTellWhatTheyAreAndSign)
{
    const Hash unknown{CKM_MD5, CKG_MGF1_SHA512 + 2, nullptr};
    const struct {
        Way way;
        std::string outcomes; ///< by each key in the order below; with "!" where the card was asked
    } rows[] = {
        {{CKM_RSA_PKCS, 20}, " ok ok ok ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS, kSize - 11}, " ok ok ok ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS, kSize - 10}, " 30! 30! 30! 21 21 21 21 68 68 68"},
        {{CKM_RSA_X_509, 20}, " ok ok 70 ok ok ok ok 68 68 68"},
        {{CKM_RSA_X_509, kSize + 1}, " 21! 21! 70 21 21 21 21 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 32}, " ok ok 70 ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 32, kSize - 1}, " 150 150 70 150 150 150 150 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 31}, " 21 21 70 21 21 21 21 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 33}, " 21 21 70 21 21 21 21 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 64, kRoom, kSha512, kSha1, 0}, " ok ok 70 ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 48, kRoom, kSha384, kSha224, 48}, " ok ok 70 ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 28, kRoom, kSha224, kSha384, 20}, " ok ok 70 ok ok ok ok 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 20, kRoom, kSha1, kSha512, kSize - 20 - 2}, " ok ok 70 ok ok ok 71 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 20, kRoom, kSha1, kSha512, kSize - 20 - 1}, " 71 71 70 71 71 71 71 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 32, kRoom, kSha256, kSha256, ~0UL}, " 71 71 70 71 71 71 71 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 16, kRoom, unknown}, " 71 71 70 71 71 71 71 68 68 68"},
        {{CKM_RSA_PKCS_PSS, 32, kRoom, kSha256, unknown}, " 71 71 70 71 71 71 71 68 68 68"},
        {{CKM_ECDSA, 0}, " 70 70 70 68 68 68 68 21 21 54"},
        {{CKM_ECDSA, 0, kSize - 1}, " 70 70 70 68 68 68 68 150 150 54"},
        {{CKM_ECDSA, 1}, " 70 70 70 68 68 68 68 ok ok 54"},
        {{CKM_ECDSA, 32}, " 70 70 70 68 68 68 68 ok ok 54"},
        {{CKM_ECDSA, 32, kSize - 1}, " 70 70 70 68 68 68 68 150 150 54"},
        {{CKM_ECDSA, 64}, " 70 70 70 68 68 68 68 ok ok 54"},
    };
    std::vector<std::string> whole(std::size(rows));
    std::vector<std::string> inParts(std::size(rows));
    std::string tokens;
    const auto use = [&](size_t number) {
        const PublicKeyHandle owner = publicKeyOf(attribute(find(CKO_CERTIFICATE, number), CKA_VALUE).bytes);
        const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY, number);
        const CK_OBJECT_HANDLE theirs = find(CKO_PUBLIC_KEY, number);
        EXPECT_EQ(attribute(mine, CKA_ID).bytes, attribute(theirs, CKA_ID).bytes);
        EXPECT_EQ(attribute(mine, CKA_EC_PARAMS).bytes, attribute(theirs, CKA_EC_PARAMS).bytes);
        attribute(mine, CKA_MODULUS); // not with the first signature
        const Outcome curve = attribute(theirs, CKA_EC_PARAMS);
        tokens += " " + vcard::toHex(attribute(mine, CKA_ID).bytes) + ":" +
                  std::to_string(this->number(mine, CKA_KEY_TYPE)) +
                  (curve.rv == CKR_OK ? ":" + vcard::toHex(curve.bytes) : hex(curve.rv));
        if (this->number(mine, CKA_DECRYPT) != CK_FALSE) {
            const Bytes secret(16, 0x5A);
            Bytes block = encryptFor(owner, secret);
            CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
            CK_ULONG length = 0;
            EXPECT_EQ(C_DecryptInit(m_session, &mechanism, mine), CKR_OK);
            EXPECT_EQ(C_Decrypt(m_session, block.data(), block.size(), nullptr, &length), CKR_OK);
            tokens += ":" + std::to_string(length);
            C_Decrypt(m_session, block.data(), block.size(), block.data(), &length);
            EXPECT_EQ(Bytes(block.begin(), block.begin() + 16), secret);
        }
        for (size_t i = 0; i < std::size(rows); ++i) {
            whole[i] += signedBy(mine, owner, rows[i].way, false);
            inParts[i] += signedBy(mine, owner, rows[i].way, true);
        }
    };
    for (const char* family : {"cardos", "cardos-v5", "atrust"}) {
        begin(familyNamed(family).make());
        if (family == std::string("cardos-v5")) // a number may come with its sign
            answer("7F49(81(00" + vcard::toHex(vcard::RsaKey::get(1024).modulus()) + ") 82(010001)) 9000", 4);
        attribute(find(CKO_PRIVATE_KEY), CKA_MODULUS);
        use(0);
    }
    begin(pivWith({{0x9A, 4096}, {0x9C, 3072}, {0x9D, 2048}, {0x9E, 1017}}));
    for (size_t i = 0; i < 4; ++i)
        use(i);
    const auto card = pivWith({{0x9A, 0, "P-256"}, {0x9C, 0, "P-384"}});
    // A curve that is none of PIV's.
    const Bytes foreign = vcard::EcKey::get("P-521").certificate("P-521");
    card->putObject(0x0B, vcard::tlv(0x53, vcard::tlv(0x70, foreign)));
    // Nor is a point that is compressed.
    card->putObject(0x01, bytes("53(70(" + PKCS11::PKCS11_blob2hex(certificate("compressed.der")) + "))"));
    begin(card);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY, 3), CKM_ECDSA, Bytes(32)).rv, CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_EC_POINT).bytes,
              vcard::tlv(0x04, vcard::EcKey::get("P-256", 0x9A).point()));
    EXPECT_EQ(attribute(find(CKO_PRIVATE_KEY), CKA_EC_POINT).rv, CKR_ATTRIBUTE_TYPE_INVALID);
    for (size_t i = 0; i < 3; ++i)
        use(i);
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(std::tie(whole[i], inParts[i]), std::tie(rows[i].outcomes, rows[i].outcomes)) << i;
    EXPECT_EQ(tokens,
              " 45:0 12:256 45:0 12:256 44465F444543:0 12:256 9A07:0 12:512 9C07:0 12:384 9D07:0 12:256"
              " 9E06:0 12:256 9A07:3:06082A8648CE3D030107 9C07:3:06052B81040022 9D07:3:06052B81040023");
}

TEST_F(DesktopSigningTest, TokensListWhatTheyDoWithTheirKeySizes)
{
    const std::string digests = "220: 0-0 400; 255: 0-0 400; 250: 0-0 400; 260: 0-0 400; 270: 0-0 400; ";
    begin(familyNamed("cardos").make());
    EXPECT_EQ(mechanisms(), "1: 512-2048 2b01; 3: 512-2048 2b01; d: 512-2048 801; " + digests);
    begin(pivWith({}));
    EXPECT_EQ(mechanisms(),
              "1: 1024-4096 a01; 3: 1024-4096 a01; d: 1024-4096 801; 1041: 256-384 1900801; " + digests);
}

TEST_F(DesktopSigningTest, OperationsRefuseWhatTheyCannotUse)
{
    begin(familyNamed("cardos").make());
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    attribute(key, CKA_MODULUS);
    CK_RSA_PKCS_PSS_PARAMS good{CKM_SHA256, CKG_MGF1_SHA256, 32};
    CK_MECHANISM mechanism{CKM_RSA_PKCS_PSS, nullptr, sizeof good};
    EXPECT_EQ(sign(key, mechanism, Bytes(32)).rv, CKR_MECHANISM_PARAM_INVALID);
    mechanism.pParameter = &good;
    for (const CK_ULONG wrong : {sizeof good - 1, sizeof good + 1}) {
        mechanism.ulParameterLen = wrong;
        EXPECT_EQ(sign(key, mechanism, Bytes(32)).rv, CKR_MECHANISM_PARAM_INVALID);
    }
    // The card's refusal, which its own mechanisms pass over, is one.
    fakepcsc::clearCalls();
    answer("6A88", 5);
    mechanism.ulParameterLen = sizeof good;
    EXPECT_EQ(sign(key, mechanism, Bytes(32)).rv, CKR_DEVICE_ERROR);
    // A part that is refused is none; a call for the whole ends an operation in parts.
    CK_BYTE out[128];
    CK_ULONG length = sizeof out;
    EXPECT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OK);
    EXPECT_EQ(part(Bytes(0x10001)), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(C_Sign(m_session, out, 32, out, &length), CKR_OK);
    EXPECT_EQ(all({C_SignInit(m_session, &mechanism, key), part({})}), CKR_OK);
    EXPECT_EQ(C_Sign(m_session, out, 1, out, &length), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(part({}), CKR_OPERATION_NOT_INITIALIZED);
    mechanism.mechanism = CKM_MD5;
    EXPECT_EQ(C_DigestInit(m_session, &mechanism), CKR_MECHANISM_INVALID);
    // An empty PIN costs no try.
    begin(pivWith({}));
    fakepcsc::clearCalls();
    EXPECT_EQ(setPin("", "654321"), CKR_PIN_INCORRECT);
    C_Logout(m_session);
    EXPECT_EQ(login(""), CKR_PIN_INCORRECT);
    EXPECT_TRUE(fakepcsc::sentAPDUs().empty());
    // Without a modulus there is no block.
    begin(familyNamed("cardos").make());
    answer("6A82", 3);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_X_509, Bytes(32)).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_X_509, Bytes(32)).rv, CKR_OK);
}

TEST_F(DesktopSigningTest, TokensThatTakePSSKnowItsHashes)
{
    begin(pivWith({}));
    TraceFile trace;
    for (const Hash& hash : {kSha1, kSha224, kSha256, kSha384, kSha512}) {
        Bytes data = vcard::fromText("what is to be hashed");
        const auto size = static_cast<CK_ULONG>(EVP_MD_get_size(hash.digest));
        Bytes expected(size);
        EVP_Digest(data.data(), data.size(), expected.data(), nullptr, hash.digest, nullptr);
        CK_MECHANISM mechanism{hash.mechanism, nullptr, 0};
        Bytes whole(size);
        Bytes parts(size);
        CK_ULONG length = 0;
        const auto init = [&] { return C_DigestInit(m_session, &mechanism); };
        const auto update = [&](CK_BYTE* at, size_t count) { return C_DigestUpdate(m_session, at, count); };
        const auto digest = [&](CK_BYTE* out) { return C_Digest(m_session, data.data(), 20, out, &length); };
        const auto final = [&](CK_BYTE* out) { return C_DigestFinal(m_session, out, &length); };
        EXPECT_EQ((std::vector{init(), digest(nullptr), length++, digest(whole.data()), length, init(),
                               update(data.data(), 5), update(&data[5], 15), length = 0, final(nullptr),
                               length++, final(parts.data()), length}),
                  (std::vector{CKR_OK, CKR_OK, size, CKR_OK, size, CKR_OK, CKR_OK, CKR_OK, 0UL, CKR_OK, size,
                               CKR_OK, size}));
        EXPECT_EQ(std::tie(whole, parts), std::tie(expected, expected));
        const std::vector<std::string> told = trace.lines();
        EXPECT_EQ(*(told.end() - 3), "*pulDigestLen :\t " + std::to_string(size)); // the result
        // What is refused ends the operation.
        EXPECT_EQ((std::vector{init(), update(data.data(), 5), digest(nullptr), init(), --length,
                               digest(whole.data()), length, init(), update(data.data(), 5), --length,
                               final(parts.data()), init()}),
                  (std::vector{CKR_OK, CKR_OK, CKR_OPERATION_ACTIVE, CKR_OK, size - 1, CKR_BUFFER_TOO_SMALL,
                               size, CKR_OK, CKR_OK, size - 1, CKR_BUFFER_TOO_SMALL, CKR_OK}));
        final(parts.data());
    }
    // A digest does not work with the key of the operation before.
    begin(pivWith({{0x9A, 1024}}));
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    CK_MECHANISM sha1{CKM_SHA_1, nullptr, 0};
    CK_BYTE out[20];
    CK_ULONG length = sizeof out;
    EXPECT_EQ((std::vector{sign(key, CKM_RSA_PKCS, Bytes(20)).rv, C_DigestInit(m_session, &sha1),
                           C_DestroyObject(m_session, key), C_Digest(m_session, out, 1, out, &length)}),
              std::vector(4, CKR_OK));
}

TEST_F(DesktopSigningTest, NumbersOfACurveAreTakenFromTheAnswer)
{
    const auto card = pivWith({{0x9A, 0, "P-256"}});
    card->putObject(0x0A, bytes("53(70(3000))"));
    ERR_raise(ERR_LIB_USER, 7); // the application's own
    begin(card);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 7);
    EXPECT_EQ(ERR_peek_error(), 0U);
    const std::string zeros(62, '0');
    const std::pair<std::string, std::string> rows[] = {
        {"7C(82(30(020200FF 020101))) 9000",
         zeros + "FF" + zeros + "01"}, // a sign byte goes, zeros come back
        {"6982", ""},
        {"7C(82()) 9000", ""},
        {"7C(82(30(020101))) 9000", ""},
        {"7C(82(30(0221 11*33 020101))) 9000", ""},
        {"7C(82(30(020101 040101))) 9000", ""},
        {"7C(82(30(020101 020101 020101))) 9000", ""},
        {"7C(82(31(020101 020101))) 9000", ""},
        {"7C(82(3006 020101)) 9000", ""},
    };
    for (const auto& [numbers, signature] : rows) {
        answer(numbers, 3); // after SELECT and VERIFY
        const Outcome outcome = sign(find(CKO_PRIVATE_KEY), CKM_ECDSA, Bytes(32));
        EXPECT_EQ(outcome.rv, signature.empty() ? CKR_DEVICE_ERROR : CKR_OK) << numbers;
        EXPECT_EQ(vcard::toHex(outcome.bytes), signature);
    }
    CK_MECHANISM mechanism{CKM_ECDSA, nullptr, 0};
    EXPECT_EQ(all({C_SignInit(m_session, &mechanism, find(CKO_PRIVATE_KEY)), C_Logout(m_session)}), CKR_OK);
    CK_BYTE out[64];
    CK_ULONG length = 1;
    EXPECT_EQ(C_Sign(m_session, out, 32, out, &length), CKR_USER_NOT_LOGGED_IN);
}

} // namespace
