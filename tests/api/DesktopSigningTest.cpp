#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/AcosCard.h"
#include "tools/vcard/CardOSCard.h"

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
        CK_MECHANISM_TYPE types[3];
        CK_ULONG count = 3;
        ASSERT_EQ(C_GetMechanismList(1, types, &count), CKR_OK);
        EXPECT_EQ(Bytes(types, types + count), (Bytes{CKM_RSA_PKCS, CKM_RSA_X_509, CKM_RSA_PKCS_PSS}));
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

} // namespace
