#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/PivCard.h"

#include <zlib.h>

using vcard::Bytes;
using vcard::tlv;

namespace {

class PivTest : public CryptokiFixture {
protected:
    void startPiv(const vcard::PivOptions& options = {})
    {
        m_card = std::make_shared<vcard::PivCard>(options);
        start(m_card, options.manners.t0);
    }
    std::shared_ptr<vcard::PivCard> m_card;
};

Bytes gzip(Bytes plain)
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
    return packed;
}

} // namespace

TEST_F(PivTest, TokenAndObjectsShowWhatTheCardHolds)
{
    startPiv();
    EXPECT_EQ(tokenInfo().flags, CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED |
                                     (isDesktop() ? CKF_TOKEN_INITIALIZED : 0));
    EXPECT_EQ(findAll().size(), 8U); // the private keys are hidden
    ASSERT_EQ(login("123456"), CKR_OK);
    ASSERT_EQ(findAll().size(), 12U);
    CK_OBJECT_HANDLE handle = 0;
    for (const auto& [reference, bits] :
         {std::pair(0x9A, 2048), std::pair(0x9C, 1024), std::pair(0x9D, 2048), std::pair(0x9E, 0)}) {
        Bytes modulus = bits ? vcard::RsaKey::get(bits, reference).modulus() : Bytes();
        EXPECT_EQ(attribute(handle + 1, CKA_VALUE).bytes,
                  m_card->certificate(static_cast<unsigned char>(reference)));
        EXPECT_EQ(vcard::toHex(attribute(handle += 3, CKA_ID).bytes),
                  vcard::toHex({static_cast<unsigned char>(reference)}) + (bits == 1024 ? "06" : "07"));
        EXPECT_EQ(findAll({{CKA_MODULUS, modulus.data(), modulus.size()}}).size(), 2U);
        EXPECT_TRUE(findAll({{CKA_PRIVATE_EXPONENT, nullptr, 0}}).empty());
    }
}

TEST_F(PivTest, SignaturesStandUpAndMessagesAreRead)
{
    for (const bool t0 : {false, true}) {
        fakepcsc::reset();
        vcard::PivOptions options;
        options.manners.t0 = t0;
        startPiv(options);
        ASSERT_EQ(login("123456"), CKR_OK);
        const Bytes data = vcard::fromText("a DigestInfo");
        const auto key = find(CKO_PRIVATE_KEY);
        const auto shortKey = find(CKO_PRIVATE_KEY, 1);
        fakepcsc::clearCalls();
        EXPECT_TRUE(
            isSignature(publicKeyOf(m_card->certificate(0x9A)), data, sign(key, CKM_RSA_PKCS, data).bytes));
        std::string starts;
        for (const std::string& apdu : fakepcsc::sentAPDUs())
            starts += apdu.substr(0, 10) + " ";
        EXPECT_EQ(starts, (isDesktop() ? "00A404000B " : "") +
                              std::string("0020008008 1087079AF9 0087079A11 00C0000000 00C0000008 "));
        // Init and Sign: is a card there, is it the same. The edition has begun and ended a transaction.
        EXPECT_EQ(fakepcsc::calls().size(), 5U + 2 * 2U + (isDesktop() ? 3U : 0U));
        EXPECT_TRUE(isSignature(publicKeyOf(m_card->certificate(0x9C)), data,
                                sign(shortKey, CKM_RSA_PKCS, data).bytes));
        const auto owner = publicKeyOf(m_card->certificate(0x9D));
        const auto reader = find(CKO_PRIVATE_KEY, 2);
        EXPECT_EQ(decrypt(reader, CKM_RSA_PKCS, encryptFor(owner, data), data.size()).bytes, data);
        EXPECT_EQ(decrypt(reader, CKM_RSA_PKCS, encryptFor(owner, data), 5).length, data.size());
        const Bytes block(256, 0x5A);
        EXPECT_EQ(decrypt(reader, CKM_RSA_X_509, encryptFor(owner, block, RSA_NO_PADDING)).bytes, block);
        const Bytes raw = sign(key, CKM_RSA_PKCS, vcard::join({block, data})).bytes;
        EXPECT_EQ(vcard::RsaKey::publicOperation(attribute(key, CKA_MODULUS).bytes, {1, 0, 1}, raw), block);
        fakepcsc::clearCalls();
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, Bytes(254, 1)).rv, CKR_DATA_LEN_RANGE);
        EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0);
        EXPECT_EQ(sign(key, CKM_RSA_X_509, data).rv, isDesktop() ? CKR_OK : CKR_MECHANISM_INVALID);
        C_Finalize(nullptr);
    }
}

TEST_F(PivTest, AChangedPinIsReplayedAndWrongOnesLock)
{
    startPiv();
    EXPECT_EQ(setPin("123456", "654321"), CKR_OK);
    EXPECT_EQ(login("123456"), CKR_PIN_INCORRECT);
    ASSERT_EQ(login("654321"), CKR_OK);
    EXPECT_EQ(setPin("654321", "77777777"), CKR_OK);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY, 1), CKM_RSA_PKCS, Bytes(20)).length, 128U);
    ASSERT_EQ(C_Logout(m_session), CKR_OK);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(login("000000"), CKR_PIN_INCORRECT);
    EXPECT_EQ(login("77777777"), CKR_PIN_LOCKED);
}

TEST_F(PivTest, OddContainersCostNoMoreThanTheirOwnObjects)
{
    m_card = std::make_shared<vcard::PivCard>();
    const Bytes plain = m_card->certificate(0x9A);
    const Bytes packed = gzip(plain);
    const Bytes bomb = gzip(Bytes(65537));
    const Bytes body = tlv(0x70, plain);
    const Bytes named = tlv(0x7F49, vcard::join({tlv(0x50, {'L'}), tlv(0x83, {1, 2})}));
    const struct {
        Bytes object, value;
        std::string label = "User Certificate", id = "9A07";
    } cases[] = {
        {tlv(0x7E, body), plain},
        {vcard::join({{0x53, 0x82, 0x7F, 0xFF}, body}), plain},
        {tlv(0x53, vcard::join({body, tlv(0x71, {0}), tlv(0xFE, {}), named})), plain, "L", "0102"},
        {tlv(0x53, vcard::join({tlv(0x70, packed), tlv(0x71, {1})})), plain},
        {tlv(0x53, vcard::join({tlv(0x70, packed), tlv(0x71, {0x80})})), plain}, // as older cards say it
        {tlv(0x53, tlv(0x70, packed)), plain},
        {tlv(0x53, vcard::join({tlv(0x70, bomb), tlv(0x71, {1})})), bomb},
        {vcard::join({{0x53, 0x82, 0xFF, 0xFF}, body}), {}, "", ""}, // a negative length
        {{0x53, 0x82, 0x01}, {}, "", ""},
        {tlv(0x54, body), {}, "", ""},
    };
    for (const auto& row : cases) {
        fakepcsc::reset();
        m_card->putObject(0x05, row.object);
        start(m_card);
        EXPECT_EQ(findAll().size(), row.value.empty() ? 6U : 8U);
        const CK_OBJECT_HANDLE certificate = row.value.empty() ? 99 : 1;
        EXPECT_EQ(attribute(certificate, CKA_VALUE).bytes, row.value);
        EXPECT_EQ(text(certificate, CKA_LABEL), row.label);
        EXPECT_EQ(vcard::toHex(attribute(certificate, CKA_ID).bytes), row.id);
        EXPECT_EQ(attribute(certificate, CKA_SUBJECT).bytes.empty(), row.value != plain);
        C_Finalize(nullptr);
    }
}
