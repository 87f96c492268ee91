#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/AcosCard.h"
#include "tools/vcard/CardOSCard.h"
#include "tools/vcard/PivCard.h"

#include <openssl/ecdsa.h>

namespace {

struct Hash {
    CK_MECHANISM_TYPE mechanism;
    CK_ULONG mask;
    const EVP_MD* digest;
    CK_ULONG length;
};
const Hash kSha1{CKM_SHA_1, CKG_MGF1_SHA1, EVP_sha1(), 20};
const Hash kSha224{CKM_SHA224, CKG_MGF1_SHA224, EVP_sha224(), 28};
const Hash kSha256{CKM_SHA256, CKG_MGF1_SHA256, EVP_sha256(), 32};
const Hash kSha384{CKM_SHA384, CKG_MGF1_SHA384, EVP_sha384(), 48};
const Hash kSha512{CKM_SHA512, CKG_MGF1_SHA512, EVP_sha512(), 64};

/// What the edition for desktop programs signs with, in the families that it adds to.
class DesktopSigning : public CryptokiFixture {
protected:
    Outcome pss(CK_OBJECT_HANDLE key, CK_RSA_PKCS_PSS_PARAMS parameters, const Bytes& hash)
    {
        return sign(key, CK_MECHANISM{CKM_RSA_PKCS_PSS, &parameters, sizeof parameters}, hash);
    }
    /// libcrypto's verdict, which takes no other length of salt.
    static bool isPSS(const PublicKeyHandle& key, const Hash& hash, const Hash& mask, int saltLength,
                      const Bytes& data, const Bytes& signature)
    {
        const Context context = contextOf(key);
        return EVP_PKEY_verify_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PSS_PADDING) == 1 &&
               EVP_PKEY_CTX_set_signature_md(context.get(), hash.digest) == 1 &&
               EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), mask.digest) == 1 &&
               EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), saltLength) == 1 &&
               EVP_PKEY_verify(context.get(), signature.data(), signature.size(), data.data(), data.size()) ==
                   1;
    }
    /// libcrypto's verdict on r and s, each half of the signature.
    static bool isECDSA(const PublicKeyHandle& key, const Bytes& hash, const Bytes& signature)
    {
        const auto half = static_cast<int>(signature.size() / 2);
        const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> numbers(ECDSA_SIG_new(), &ECDSA_SIG_free);
        ECDSA_SIG_set0(numbers.get(), BN_bin2bn(signature.data(), half, nullptr),
                       BN_bin2bn(signature.data() + half, half, nullptr));
        unsigned char der[256];
        unsigned char* at = der;
        const auto length = static_cast<size_t>(i2d_ECDSA_SIG(numbers.get(), &at));
        const Context context = contextOf(key);
        return EVP_PKEY_verify_init(context.get()) == 1 &&
               EVP_PKEY_verify(context.get(), der, length, hash.data(), hash.size()) == 1;
    }
    /// A PIV card with the keys, behind a login.
    std::shared_ptr<vcard::PivCard> startPiv(std::vector<vcard::PivSlot> keys)
    {
        vcard::PivOptions options;
        options.slots = std::move(keys);
        auto card = std::make_shared<vcard::PivCard>(options);
        start(card);
        EXPECT_EQ(login("123456"), CKR_OK);
        return card;
    }
    static std::vector<CK_MECHANISM_TYPE> mechanisms()
    {
        std::vector<CK_MECHANISM_TYPE> types(20);
        CK_ULONG count = types.size();
        EXPECT_EQ(C_GetMechanismList(1, types.data(), &count), CKR_OK);
        types.resize(count);
        return types;
    }
    static std::vector<CK_MECHANISM_TYPE> withDigests(std::vector<CK_MECHANISM_TYPE> types)
    {
        types.insert(types.end(), {CKM_SHA_1, CKM_SHA224, CKM_SHA256, CKM_SHA384, CKM_SHA512});
        return types;
    }
    void beginParts(CK_OBJECT_HANDLE key, CK_MECHANISM mechanism)
    {
        ASSERT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OK);
    }
    CK_RV part(Bytes data) { return C_SignUpdate(m_session, data.data(), data.size()); }
};

TEST_F(DesktopSigning, CardOSSignsWithPSS)
{
    for (const bool isV50 : {false, true}) {
        fakepcsc::reset();
        vcard::CardOSOptions options;
        options.isV50 = isV50;
        const auto card = std::make_shared<vcard::CardOSCard>(options);
        start(card);
        ASSERT_EQ(login("123456"), CKR_OK);
        EXPECT_EQ(mechanisms(), withDigests({CKM_RSA_PKCS, CKM_RSA_X_509, CKM_RSA_PKCS_PSS}));
        CK_MECHANISM_INFO raw{};
        CK_MECHANISM_INFO info{};
        ASSERT_EQ(C_GetMechanismInfo(1, CKM_RSA_X_509, &raw), CKR_OK);
        ASSERT_EQ(C_GetMechanismInfo(1, CKM_RSA_PKCS_PSS, &info), CKR_OK);
        EXPECT_EQ(info.ulMaxKeySize, raw.ulMaxKeySize);
        EXPECT_EQ(info.flags, CKF_HW | CKF_SIGN);

        const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
        const auto owner = publicKeyOf(card->certificate());
        const auto most = static_cast<CK_ULONG>(card->key().size()) - 20 - 2;
        const struct {
            const Hash &hash, &mask;
            CK_ULONG salt;
        } cases[] = {
            {kSha256, kSha256, 32}, {kSha512, kSha1, 0}, {kSha384, kSha224, 48}, {kSha1, kSha512, most}};
        for (const auto& row : cases) {
            const Bytes hash(row.hash.length, 0xA5);
            const Bytes first = pss(key, {row.hash.mechanism, row.mask.mask, row.salt}, hash).bytes;
            EXPECT_TRUE(isPSS(owner, row.hash, row.mask, static_cast<int>(row.salt), hash, first));
            EXPECT_EQ(pss(key, {row.hash.mechanism, row.mask.mask, row.salt}, hash).bytes == first,
                      row.salt == 0);
        }
        EXPECT_EQ(pss(key, {CKM_SHA_1, CKG_MGF1_SHA1, most + 1}, Bytes(20)).rv, CKR_MECHANISM_PARAM_INVALID);
        C_Finalize(nullptr);
    }
}

TEST_F(DesktopSigning, PSSRefusesWrongParametersAndLengthsBeforeTheCardIsAsked)
{
    start(std::make_shared<vcard::CardOSCard>());
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    CK_RSA_PKCS_PSS_PARAMS good{CKM_SHA256, CKG_MGF1_SHA256, 32};
    EXPECT_EQ(pss(key, good, Bytes(32)).length, 128U);
    fakepcsc::clearCalls();
    for (const CK_MECHANISM& mechanism :
         {CK_MECHANISM{CKM_RSA_PKCS_PSS, nullptr, 0}, CK_MECHANISM{CKM_RSA_PKCS_PSS, nullptr, sizeof good},
          CK_MECHANISM{CKM_RSA_PKCS_PSS, &good, sizeof good - 1},
          CK_MECHANISM{CKM_RSA_PKCS_PSS, &good, sizeof good + 1}})
        EXPECT_EQ(sign(key, mechanism, Bytes(32)).rv, CKR_MECHANISM_PARAM_INVALID);
    for (const CK_RSA_PKCS_PSS_PARAMS& wrong : {CK_RSA_PKCS_PSS_PARAMS{CKM_MD5, CKG_MGF1_SHA256, 16},
                                                {CKM_SHA256, 0, 32},
                                                {CKM_SHA256, CKG_MGF1_SHA512 + 2, 32},
                                                {CKM_SHA256_RSA_PKCS_PSS, CKG_MGF1_SHA256, 32},
                                                {CKM_SHA256, CKG_MGF1_SHA256, 128 - 32 - 2 + 1},
                                                {CKM_SHA256, CKG_MGF1_SHA256, ~0UL}})
        EXPECT_EQ(pss(key, wrong, Bytes(32)).rv, CKR_MECHANISM_PARAM_INVALID);
    for (const size_t length : {0, 20, 31, 33})
        EXPECT_EQ(pss(key, good, Bytes(length)).rv, CKR_DATA_LEN_RANGE);
    const CK_MECHANISM mechanism{CKM_RSA_PKCS_PSS, &good, sizeof good};
    const Outcome narrow = sign(key, mechanism, Bytes(32), 127);
    EXPECT_EQ(narrow.rv, CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(narrow.length, 128U);
    EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0);
    // The card's refusal, which its own mechanisms pass over, is one.
    fakepcsc::replaceAnswer({0x6A, 0x88}, 5);
    EXPECT_EQ(sign(key, mechanism, Bytes(32)).rv, CKR_DEVICE_ERROR);
}

TEST_F(DesktopSigning, PartsAreSignedAsOne)
{
    const auto card = std::make_shared<vcard::CardOSCard>();
    start(card);
    ASSERT_EQ(login("123456"), CKR_OK);
    const auto owner = publicKeyOf(card->certificate());
    CK_RSA_PKCS_PSS_PARAMS parameters{CKM_SHA256, CKG_MGF1_SHA256, 32};
    beginParts(find(CKO_PRIVATE_KEY), {CKM_RSA_PKCS_PSS, &parameters, sizeof parameters});
    parameters = {}; // the caller's to reuse
    fakepcsc::clearCalls();
    EXPECT_EQ(part(Bytes(20, 1)), CKR_OK);
    EXPECT_EQ(part({}), CKR_OK);
    EXPECT_EQ(part(Bytes(0x10000 - 20 + 1)), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(part(Bytes(12, 2)), CKR_OK);
    CK_ULONG length = 0;
    EXPECT_EQ(C_SignFinal(m_session, nullptr, &length), CKR_OK);
    ASSERT_EQ(length, 128U);
    EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0);
    Bytes signature(length);
    EXPECT_EQ(C_SignFinal(m_session, signature.data(), &length), CKR_OK);
    EXPECT_TRUE(isPSS(owner, kSha256, kSha256, 32, vcard::join({Bytes(20, 1), Bytes(12, 2)}), signature));
    EXPECT_EQ(C_SignFinal(m_session, signature.data(), &length), CKR_OPERATION_NOT_INITIALIZED);

    // Each of these ends the operation.
    beginParts(find(CKO_PRIVATE_KEY), {CKM_RSA_PKCS, nullptr, 0});
    EXPECT_EQ(part({1}), CKR_OK);
    EXPECT_EQ(C_Sign(m_session, signature.data(), 1, signature.data(), &length), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(part({1}), CKR_OPERATION_NOT_INITIALIZED);
    beginParts(find(CKO_PRIVATE_KEY), {CKM_RSA_PKCS, nullptr, 0});
    length = 127;
    EXPECT_EQ(C_SignFinal(m_session, signature.data(), &length), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 128U);
    EXPECT_EQ(part({1}), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(DesktopSigning, CardsThatPadThemselvesSignInPartsToo)
{
    const auto card = std::make_shared<vcard::AcosTrustCard>("123456");
    start(card);
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    const Bytes digest(20, 7);
    const Bytes whole = sign(key, CKM_RSA_PKCS, digest).bytes;
    ASSERT_FALSE(whole.empty());
    beginParts(key, {CKM_RSA_PKCS, nullptr, 0});
    EXPECT_EQ(part(Bytes(10, 7)), CKR_OK);
    EXPECT_EQ(part(Bytes(10, 7)), CKR_OK);
    Bytes signature(whole.size());
    CK_ULONG length = signature.size();
    EXPECT_EQ(C_SignFinal(m_session, signature.data(), &length), CKR_OK);
    EXPECT_EQ(signature, whole);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS_PSS, digest).rv, CKR_MECHANISM_INVALID);
}

TEST_F(DesktopSigning, TokensThatTakePSSKnowItsHashes)
{
    startPiv({{0x9E, 0}});
    Bytes data = vcard::fromText("what is to be hashed");
    for (const Hash& hash : {kSha1, kSha224, kSha256, kSha384, kSha512}) {
        CK_MECHANISM_INFO info{};
        EXPECT_EQ(C_GetMechanismInfo(1, hash.mechanism, &info), CKR_OK);
        EXPECT_EQ(info.flags, CKF_DIGEST);
        Bytes expected(hash.length);
        EVP_Digest(data.data(), data.size(), expected.data(), nullptr, hash.digest, nullptr);
        CK_MECHANISM mechanism{hash.mechanism, nullptr, 0};
        ASSERT_EQ(C_DigestInit(m_session, &mechanism), CKR_OK);
        CK_ULONG length = 0;
        EXPECT_EQ(C_Digest(m_session, data.data(), data.size(), nullptr, &length), CKR_OK);
        ASSERT_EQ(length, hash.length);
        Bytes digest(length);
        EXPECT_EQ(C_Digest(m_session, data.data(), data.size(), digest.data(), &length), CKR_OK);
        EXPECT_EQ(digest, expected);

        ASSERT_EQ(C_DigestInit(m_session, &mechanism), CKR_OK);
        EXPECT_EQ(C_DigestUpdate(m_session, data.data(), 5), CKR_OK);
        EXPECT_EQ(C_DigestUpdate(m_session, data.data() + 5, data.size() - 5), CKR_OK);
        EXPECT_EQ(C_DigestFinal(m_session, nullptr, &length), CKR_OK);
        digest.assign(length, 0);
        EXPECT_EQ(C_DigestFinal(m_session, digest.data(), &length), CKR_OK);
        EXPECT_EQ(digest, expected);
        // Each of these ends the operation.
        ASSERT_EQ(C_DigestInit(m_session, &mechanism), CKR_OK);
        EXPECT_EQ(C_DigestUpdate(m_session, data.data(), 5), CKR_OK);
        EXPECT_EQ(C_Digest(m_session, data.data(), 5, digest.data(), &length), CKR_OPERATION_ACTIVE);
        ASSERT_EQ(C_DigestInit(m_session, &mechanism), CKR_OK);
        length = hash.length - 1;
        EXPECT_EQ(C_Digest(m_session, data.data(), 5, digest.data(), &length), CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(length, hash.length);
    }
    CK_MECHANISM mechanism{CKM_MD5, nullptr, 0};
    EXPECT_EQ(C_DigestInit(m_session, &mechanism), CKR_MECHANISM_INVALID);
}

TEST_F(DesktopSigning, PIVListsWhatItDoesWithItsKeySizes)
{
    startPiv({{0x9A, 1024}});
    const struct {
        CK_MECHANISM_TYPE type;
        CK_ULONG least, most;
        CK_FLAGS flags;
    } rows[] = {
        {CKM_RSA_PKCS, 1024, 4096, CKF_HW | CKF_DECRYPT | CKF_SIGN},
        {CKM_RSA_X_509, 1024, 4096, CKF_HW | CKF_DECRYPT | CKF_SIGN},
        {CKM_RSA_PKCS_PSS, 1024, 4096, CKF_HW | CKF_SIGN},
        {CKM_ECDSA, 256, 384, CKF_HW | CKF_SIGN | CKF_EC_F_P | CKF_EC_NAMEDCURVE | CKF_EC_UNCOMPRESS}};
    std::vector<CK_MECHANISM_TYPE> wanted;
    for (const auto& row : rows) {
        wanted.push_back(row.type);
        CK_MECHANISM_INFO info{};
        EXPECT_EQ(C_GetMechanismInfo(1, row.type, &info), CKR_OK);
        EXPECT_EQ(std::tuple(info.ulMinKeySize, info.ulMaxKeySize, info.flags),
                  std::tuple(row.least, row.most, row.flags));
    }
    EXPECT_EQ(mechanisms(), withDigests(wanted));
}

TEST_F(DesktopSigning, PIVKeysOfEverySizeSignAndDecrypt)
{
    const auto card = startPiv({{0x9A, 4096}, {0x9C, 3072}, {0x9D, 2048}, {0x9E, 1024}});
    const Bytes data = vcard::fromText("a DigestInfo");
    const Bytes hash(32, 0x3C);
    size_t number = 0;
    for (const auto& [reference, size, id] :
         {std::tuple(0x9A, 512U, "9A07"), std::tuple(0x9C, 384U, "9C07"), std::tuple(0x9D, 256U, "9D07"),
          std::tuple(0x9E, 128U, "9E06")}) {
        const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, number++);
        EXPECT_EQ(vcard::toHex(attribute(key, CKA_ID).bytes), id);
        const auto owner = publicKeyOf(card->certificate(static_cast<unsigned char>(reference)));
        fakepcsc::clearCalls();
        EXPECT_TRUE(isSignature(owner, data, sign(key, CKM_RSA_PKCS, data).bytes));
        EXPECT_LE(fakepcsc::callCount("SCardTransmit"), size == 256 ? 6 : 9);
        EXPECT_TRUE(isPSS(owner, kSha256, kSha256, 32, hash,
                          pss(key, {CKM_SHA256, CKG_MGF1_SHA256, 32}, hash).bytes));
        // The data as they are, behind zeros.
        const Bytes raw = sign(key, CKM_RSA_X_509, data).bytes;
        EXPECT_EQ(vcard::RsaKey::publicOperation(attribute(key, CKA_MODULUS).bytes, {1, 0, 1}, raw),
                  vcard::join({Bytes(size - data.size()), data}));
        EXPECT_EQ(sign(key, CKM_RSA_X_509, Bytes(size + 1)).rv, CKR_DATA_LEN_RANGE);
        EXPECT_EQ(sign(key, CKM_ECDSA, hash).rv, CKR_KEY_FUNCTION_NOT_PERMITTED);

        EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, encryptFor(owner, data)).bytes, data);
        CK_MECHANISM mechanism{CKM_RSA_X_509, nullptr, 0};
        CK_ULONG length = 0;
        Bytes block(size, 0x5A);
        ASSERT_EQ(C_DecryptInit(m_session, &mechanism, key), CKR_OK);
        EXPECT_EQ(C_Decrypt(m_session, block.data(), size, nullptr, &length), CKR_OK);
        EXPECT_EQ(length, std::max(256U, size));
        EXPECT_EQ(C_Decrypt(m_session, block.data(), size, block.data(), &length), CKR_OK);
    }
}

TEST_F(DesktopSigning, PIVKeysOnCurvesTellThemAndSign)
{
    const auto card = startPiv({{0x9A, 0, "P-256"}, {0x9C, 0, "P-384"}, {0x9E, 1024}});
    const struct {
        unsigned char reference;
        const char *curve, *parameters;
        size_t size;
    } rows[] = {{0x9A, "P-256", "06082A8648CE3D030107", 32}, {0x9C, "P-384", "06052B81040022", 48}};
    size_t number = 0;
    for (const auto& row : rows) {
        const CK_OBJECT_HANDLE theirs = find(CKO_PUBLIC_KEY, number);
        const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, number++);
        const Bytes point = vcard::EcKey::get(row.curve, row.reference).point();
        for (const CK_OBJECT_HANDLE either : {theirs, key}) {
            EXPECT_EQ(this->number(either, CKA_KEY_TYPE), CKK_EC);
            EXPECT_EQ(vcard::toHex(attribute(either, CKA_EC_PARAMS).bytes), row.parameters);
            EXPECT_EQ(vcard::toHex(attribute(either, CKA_ID).bytes), vcard::toHex({row.reference, 0x07}));
        }
        EXPECT_EQ(attribute(theirs, CKA_EC_POINT).bytes, vcard::tlv(0x04, point));
        EXPECT_EQ(attribute(key, CKA_EC_POINT).rv, CKR_ATTRIBUTE_TYPE_INVALID);
        EXPECT_EQ(this->number(key, CKA_DECRYPT), CK_FALSE);

        const auto owner = publicKeyOf(card->certificate(row.reference));
        for (const size_t length : {1, 32, 48, 64})
            EXPECT_TRUE(isECDSA(owner, Bytes(length, 0x77), sign(key, CKM_ECDSA, Bytes(length, 0x77)).bytes));
        fakepcsc::clearCalls();
        EXPECT_EQ(sign(key, CKM_ECDSA, {}).rv, CKR_DATA_LEN_RANGE);
        const Outcome narrow = sign(key, CKM_ECDSA, Bytes(32), 2 * row.size - 1);
        EXPECT_EQ(narrow.rv, CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(narrow.length, 2 * row.size);
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, Bytes(32)).rv, CKR_KEY_FUNCTION_NOT_PERMITTED);
        EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0);
        const auto answered = [&](const Bytes& response) {
            fakepcsc::replaceAnswer(vcard::join({vcard::tlv(0x7C, vcard::tlv(0x82, response)), {0x90, 0x00}}),
                                    3); // behind SELECT and VERIFY
            return sign(key, CKM_ECDSA, Bytes(32));
        };
        const auto sequence = [](const Bytes& r, const Bytes& s) {
            return vcard::tlv(0x30, vcard::join({vcard::tlv(0x02, r), vcard::tlv(0x02, s)}));
        };
        // A sign byte goes, zeros that DER leaves out come back.
        EXPECT_EQ(answered(sequence({0x00, 0xFF}, {0x01})).bytes,
                  vcard::join({Bytes(row.size - 1), {0xFF}, Bytes(row.size - 1), {0x01}}));
        for (const Bytes& response :
             {Bytes(), vcard::tlv(0x30, vcard::tlv(0x02, {1})), sequence(Bytes(row.size + 1, 1), {1}),
              vcard::tlv(0x30, vcard::join({vcard::tlv(0x02, {1}), vcard::tlv(0x04, {1})})),
              vcard::tlv(0x31, vcard::join({vcard::tlv(0x02, {1}), vcard::tlv(0x02, {1})})),
              Bytes{0x30, 0x06, 0x02, 0x01, 0x01}})
            EXPECT_EQ(answered(response).rv, CKR_DEVICE_ERROR) << vcard::toHex(response);
        fakepcsc::replaceAnswer({0x69, 0x82}, 3);
        EXPECT_EQ(sign(key, CKM_ECDSA, Bytes(32)).rv, CKR_DEVICE_ERROR);
    }
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY, 2), CKA_EC_PARAMS).rv, CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(DesktopSigning, AKeyOnAForeignCurveTellsItAndDoesNotSign)
{
    auto card = std::make_shared<vcard::PivCard>();
    card->putObject(0x05,
                    vcard::tlv(0x53, vcard::tlv(0x70, vcard::EcKey::get("P-521").certificate("P-521"))));
    start(card);
    ASSERT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(vcard::toHex(attribute(find(CKO_PRIVATE_KEY), CKA_EC_PARAMS).bytes), "06052B81040023");
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_ECDSA, Bytes(32)).rv, CKR_FUNCTION_NOT_SUPPORTED);
}

} // namespace
