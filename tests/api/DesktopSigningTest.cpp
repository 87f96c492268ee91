// What the edition for desktop programs signs with, in the families that it adds to.
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Expected.h"
#include "tests/support/Families.h"
#include "tools/vcard/PivCard.h"

#include <openssl/ecdsa.h>

namespace {

struct Hash {
    const char* name;
    CK_MECHANISM_TYPE mechanism;
    CK_ULONG mask;
    const EVP_MD* digest;
};
const Hash kHashes[] = {{"SHA-1", CKM_SHA_1, CKG_MGF1_SHA1, EVP_sha1()},
                        {"SHA-224", CKM_SHA224, CKG_MGF1_SHA224, EVP_sha224()},
                        {"SHA-256", CKM_SHA256, CKG_MGF1_SHA256, EVP_sha256()},
                        {"SHA-384", CKM_SHA384, CKG_MGF1_SHA384, EVP_sha384()},
                        {"SHA-512", CKM_SHA512, CKG_MGF1_SHA512, EVP_sha512()}};
/// As the mechanisms or masks name them; no digest for others.
const EVP_MD* digestOf(CK_ULONG Hash::*member, CK_ULONG number)
{
    for (const Hash& hash : kHashes)
        if (hash.*member == number)
            return hash.digest;
    return nullptr;
}

class DesktopSigning : public CryptokiFixture {
protected:
    using Pss = CK_RSA_PKCS_PSS_PARAMS;

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
    /// Whether it is the owner's signature of the data, by libcrypto; for PSS it takes no other length of
    /// salt.
    static bool stands(const PublicKeyHandle& owner, const CK_MECHANISM& mechanism, const Bytes& data,
                       Bytes signature)
    {
        const Context context = contextOf(owner);
        EVP_PKEY_verify_init(context.get());
        if (mechanism.mechanism == CKM_ECDSA) { // r and s, each half of the signature
            const auto half = static_cast<int>(signature.size() / 2);
            const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> numbers(ECDSA_SIG_new(),
                                                                                &ECDSA_SIG_free);
            ECDSA_SIG_set0(numbers.get(), BN_bin2bn(signature.data(), half, nullptr),
                           BN_bin2bn(signature.data() + half, half, nullptr));
            signature.resize(256);
            unsigned char* at = signature.data();
            signature.resize(static_cast<size_t>(i2d_ECDSA_SIG(numbers.get(), &at)));
        } else if (mechanism.mechanism == CKM_RSA_PKCS_PSS) {
            const Pss& pss = *static_cast<Pss*>(mechanism.pParameter);
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PSS_PADDING);
            EVP_PKEY_CTX_set_signature_md(context.get(), digestOf(&Hash::mechanism, pss.hashAlg));
            EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), digestOf(&Hash::mask, pss.mgf));
            EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), static_cast<int>(pss.sLen));
        } else { // what the signature holds, for the raw mechanism behind zeros
            Bytes held(signature.size());
            size_t length = held.size();
            const bool isRaw = mechanism.mechanism == CKM_RSA_X_509;
            EVP_PKEY_verify_recover_init(context.get());
            EVP_PKEY_CTX_set_rsa_padding(context.get(), isRaw ? RSA_NO_PADDING : RSA_PKCS1_PADDING);
            EVP_PKEY_verify_recover(context.get(), held.data(), &length, signature.data(), signature.size());
            held.resize(length);
            return held == vcard::join({Bytes(isRaw ? signature.size() - data.size() : 0), data});
        }
        return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), data.data(), data.size()) ==
               1;
    }
    /// The code of a failure or what libcrypto says, the length, and the commands that it took.
    std::string signs(CK_OBJECT_HANDLE key, const PublicKeyHandle& owner, const CK_MECHANISM& mechanism,
                      const Bytes& data, CK_ULONG room = kRoom)
    {
        fakepcsc::clearCalls();
        const Outcome signature = sign(key, mechanism, data, room);
        std::ostringstream text;
        text << " " << data.size() << ":" << std::hex << signature.rv << std::dec;
        if (signature.rv == CKR_OK)
            text << (stands(owner, mechanism, data, signature.bytes) ? "/stands" : "/of other data");
        text << "/" << static_cast<int>(signature.length) << "/" << fakepcsc::callCount("SCardTransmit");
        return text.str();
    }
    void beginParts(CK_OBJECT_HANDLE key, CK_MECHANISM mechanism)
    {
        ASSERT_EQ(C_SignInit(m_session, &mechanism, key), CKR_OK);
    }
    CK_RV part(Bytes data) { return C_SignUpdate(m_session, data.data(), data.size()); }
};

} // namespace

TEST_F(DesktopSigning, EachKeyMakesOfEachMechanismWhatItCan)
{
    const auto foreign = pivWith({});
    foreign->putObject(0x05,
                       vcard::tlv(0x53, vcard::tlv(0x70, vcard::EcKey::get("P-521").certificate("P-521"))));
    const std::pair<const char*, std::shared_ptr<vcard::Card>> cards[] = {
        {"CardOS", kFamilies[1].make()},
        {"CardOS V5.0", kFamilies[2].make()},
        {"A-Trust", kFamilies[4].make()},
        {"PIV with RSA keys", pivWith({{0x9A, 4096}, {0x9C, 3072}, {0x9D, 2048}, {0x9E, 1024}})},
        {"PIV with keys on curves", pivWith({{0x9A, 0, "P-256"}, {0x9C, 0, "P-384"}})},
        {"PIV with a key on a foreign curve", foreign}};
    std::ostringstream shown;
    for (const auto& [name, card] : cards) {
        ASSERT_NO_FATAL_FAILURE(begin(card));
        shown << name << "\n";
        CK_MECHANISM_TYPE types[20];
        CK_ULONG count = 20;
        EXPECT_EQ(C_GetMechanismList(1, types, &count), CKR_OK);
        for (CK_ULONG i = 0; i < count; ++i) {
            CK_MECHANISM_INFO info{};
            EXPECT_EQ(C_GetMechanismInfo(1, types[i], &info), CKR_OK);
            shown << "  " << std::hex << types[i] << ":" << std::dec << info.ulMinKeySize << "-"
                  << info.ulMaxKeySize << "/" << std::hex << info.flags << std::dec;
        }
        CK_OBJECT_HANDLE key = 0, theirs = 0;
        for (size_t nth = 0; (key = find(CKO_PRIVATE_KEY, nth)) != 0; ++nth) {
            theirs = find(CKO_PUBLIC_KEY, nth);
            const auto owner = publicKeyOf(attribute(find(CKO_CERTIFICATE, nth), CKA_VALUE).bytes);
            shown << "\n  key " << vcard::toHex(attribute(key, CKA_ID).bytes) << " of type "
                  << number(key, CKA_KEY_TYPE) << " " << vcard::toHex(attribute(key, CKA_EC_PARAMS).bytes)
                  << " " << attribute(key, CKA_EC_POINT).rv << " decrypts " << number(key, CKA_DECRYPT)
                  << ", public " << vcard::toHex(attribute(theirs, CKA_ID).bytes) << " of type "
                  << number(theirs, CKA_KEY_TYPE) << " "
                  << vcard::toHex(attribute(theirs, CKA_EC_PARAMS).bytes) << " point of "
                  << static_cast<int>(attribute(theirs, CKA_EC_POINT).length);
            const size_t size = attribute(key, CKA_MODULUS).length;
            for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA}) {
                const CK_MECHANISM mechanism{type, nullptr, 0};
                shown << "\n    mechanism " << std::hex << type << std::dec << ":";
                for (const size_t length :
                     {size_t{0}, size_t{1}, size_t{32}, size_t{48}, size_t{64}, size + 1})
                    shown << signs(key, owner, mechanism, Bytes(length, 0x77));
                shown << ", tight"
                      << signs(key, owner, mechanism, Bytes(32, 0x77), size != 0 ? size - 1 : 63);
            }
            const auto most = static_cast<CK_ULONG>(size - 20 - 2);
            shown << (size != 0 ? "\n    with PSS:" : "");
            for (Pss pss : {Pss{CKM_SHA256, CKG_MGF1_SHA256, 32},
                            {CKM_SHA512, CKG_MGF1_SHA1, 0},
                            {CKM_SHA384, CKG_MGF1_SHA224, 48},
                            {CKM_SHA_1, CKG_MGF1_SHA512, most},
                            {CKM_SHA_1, CKG_MGF1_SHA1, most + 1},
                            {CKM_SHA256, CKG_MGF1_SHA256, ~0UL},
                            {CKM_MD5, CKG_MGF1_SHA256, 16},
                            {CKM_SHA256, 0, 32},
                            {CKM_SHA256, CKG_MGF1_SHA512 + 2, 32},
                            {CKM_SHA256_RSA_PKCS_PSS, CKG_MGF1_SHA256, 32}}) {
                if (size == 0)
                    break;
                const CK_MECHANISM mechanism{CKM_RSA_PKCS_PSS, &pss, sizeof pss};
                const EVP_MD* digest = digestOf(&Hash::mechanism, pss.hashAlg);
                shown << signs(key, owner, mechanism,
                               Bytes(digest != nullptr ? EVP_MD_size(digest) : 16, 0xA5));
            }
            Pss pss{CKM_SHA256, CKG_MGF1_SHA256, 32};
            for (const CK_ULONG length : {sizeof pss, sizeof pss - 1, sizeof pss + 1, size_t{0}})
                shown << "/" << signs(key, owner, {CKM_RSA_PKCS_PSS, &pss, length}, Bytes(31));
            shown << "/" << signs(key, owner, {CKM_RSA_PKCS_PSS, nullptr, sizeof pss}, Bytes(32)) << ", tight"
                  << signs(key, owner, {CKM_RSA_PKCS_PSS, &pss, sizeof pss}, Bytes(32), size - 1);
        }
        shown << "\n";
    }
    expectFile("api/desktop.signatures", shown.str());
}

TEST_F(DesktopSigning, PartsAreSignedAsOne)
{
    begin(kFamilies[1].make());
    const auto owner = publicKeyOf(attribute(find(CKO_CERTIFICATE), CKA_VALUE).bytes);
    Pss parameters{CKM_SHA256, CKG_MGF1_SHA256, 32};
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
    parameters = {CKM_SHA256, CKG_MGF1_SHA256, 32};
    EXPECT_TRUE(stands(owner, {CKM_RSA_PKCS_PSS, &parameters, sizeof parameters},
                       vcard::join({Bytes(20, 1), Bytes(12, 2)}), signature));
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
    // The card's refusal, which its own mechanisms pass over, is one.
    fakepcsc::replaceAnswer({0x6A, 0x88}, 5);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), {CKM_RSA_PKCS_PSS, &parameters, sizeof parameters}, Bytes(32)).rv,
              CKR_DEVICE_ERROR);
    // A card that pads itself.
    begin(kFamilies[4].make());
    const Bytes whole = sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, Bytes(20, 7)).bytes;
    beginParts(find(CKO_PRIVATE_KEY), {CKM_RSA_PKCS, nullptr, 0});
    EXPECT_EQ(part(Bytes(10, 7)) | part(Bytes(10, 7)), CKR_OK);
    EXPECT_EQ(C_SignFinal(m_session, signature.data(), &(length = 128)), CKR_OK);
    EXPECT_EQ(signature, whole);
}

TEST_F(DesktopSigning, TokensThatTakePSSKnowItsHashes)
{
    begin(pivWith({{0x9E, 0}}));
    Bytes data = vcard::fromText("what is to be hashed");
    for (const Hash& hash : kHashes) {
        SCOPED_TRACE(hash.mechanism);
        Bytes expected(EVP_MAX_MD_SIZE), digest;
        unsigned size = 0;
        EVP_Digest(data.data(), data.size(), expected.data(), &size, hash.digest, nullptr);
        expected.resize(size);
        CK_ULONG length = 0;
        const auto start = [&] {
            CK_MECHANISM mechanism{hash.mechanism, nullptr, 0};
            digest.assign(size, 0);
            EXPECT_EQ(C_DigestInit(m_session, &mechanism), CKR_OK);
        };
        start();
        EXPECT_EQ(C_Digest(m_session, data.data(), data.size(), nullptr, &length), CKR_OK);
        EXPECT_EQ(std::exchange(length, size), size);
        EXPECT_EQ(C_Digest(m_session, data.data(), data.size(), digest.data(), &length), CKR_OK);
        EXPECT_EQ(digest, expected);
        start();
        EXPECT_EQ(C_DigestUpdate(m_session, data.data(), 5), CKR_OK);
        EXPECT_EQ(C_DigestUpdate(m_session, data.data() + 5, data.size() - 5), CKR_OK);
        EXPECT_EQ(C_DigestFinal(m_session, nullptr, &length), CKR_OK);
        EXPECT_EQ(C_DigestFinal(m_session, digest.data(), &length), CKR_OK);
        EXPECT_EQ(digest, expected);
        // Each of these ends the operation.
        start();
        EXPECT_EQ(C_DigestUpdate(m_session, data.data(), 5), CKR_OK);
        EXPECT_EQ(C_Digest(m_session, data.data(), 5, digest.data(), &length), CKR_OPERATION_ACTIVE);
        start();
        EXPECT_EQ(C_Digest(m_session, data.data(), 5, digest.data(), &(length = size - 1)),
                  CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(length, size);
    }
    CK_MECHANISM mechanism{CKM_MD5, nullptr, 0};
    EXPECT_EQ(C_DigestInit(m_session, &mechanism), CKR_MECHANISM_INVALID);
}

TEST_F(DesktopSigning, PIVKeysOfEverySizeDecrypt)
{
    begin(pivWith({{0x9A, 4096}, {0x9C, 3072}, {0x9D, 2048}, {0x9E, 1024}}));
    const Bytes data = vcard::fromText("a message");
    for (size_t nth = 0; nth < 4; ++nth) {
        const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, nth);
        const auto owner = publicKeyOf(attribute(find(CKO_CERTIFICATE, nth), CKA_VALUE).bytes);
        EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, encryptFor(owner, data)).bytes, data);
        CK_MECHANISM mechanism{CKM_RSA_X_509, nullptr, 0};
        const CK_ULONG size = attribute(key, CKA_MODULUS).length;
        CK_ULONG length = 0;
        Bytes block(size, 0x5A);
        ASSERT_EQ(C_DecryptInit(m_session, &mechanism, key), CKR_OK);
        EXPECT_EQ(C_Decrypt(m_session, block.data(), size, nullptr, &length), CKR_OK);
        EXPECT_EQ(length, std::max(CK_ULONG{256}, size));
        EXPECT_EQ(C_Decrypt(m_session, block.data(), size, block.data(), &length), CKR_OK);
    }
}

TEST_F(DesktopSigning, PIVKeysOnCurvesTakeNoOtherAnswerThanTwoNumbers)
{
    begin(pivWith({{0x9A, 0, "P-256"}}));
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_EC_POINT).bytes,
              vcard::tlv(0x04, vcard::EcKey::get("P-256", 0x9A).point()));
    const auto answered = [&](const Bytes& answer) {
        fakepcsc::replaceAnswer(answer, 3); // behind SELECT and VERIFY
        return sign(key, CKM_ECDSA, Bytes(32));
    };
    const auto holding = [&](const std::string& response) {
        return answered(
            vcard::join({vcard::tlv(0x7C, vcard::tlv(0x82, vcard::fromHex(response))), {0x90, 0x00}}));
    };
    // A sign byte goes, zeros that DER leaves out come back.
    EXPECT_EQ(holding("3007020200FF020101").bytes, vcard::join({Bytes(31), {0xFF}, Bytes(31), {0x01}}));
    const std::string longNumber = "0221" + vcard::toHex(Bytes(33, 1));
    for (const std::string& response :
         {std::string(), std::string("3003020101"), "3026" + longNumber + "020101",
          std::string("3006020101040101"), std::string("3106020101020101"), std::string("3006020101")})
        EXPECT_EQ(holding(response).rv, CKR_DEVICE_ERROR) << response;
    EXPECT_EQ(answered({0x69, 0x82}).rv, CKR_DEVICE_ERROR);
}
