#include "pkcs11/drivers/cardos/CardOSMechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/cardos/CardOSPrivateKey.h"
#include "pkcs11/drivers/cardos/CardOSPublicKey.h"
#include "pkcs11/drivers/cardos/CardOSToken.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/common/PKCS1.h"
#include "pkcs11/token/ByteOrder.h"

#include <algorithm>
#include <limits>

namespace PKCS11 {

namespace {

constexpr unsigned char kSignatureBlock = 0x01;
constexpr unsigned char kEncryptionBlock = 0x02;
/// RFC 8017 wants so many bytes of filler, even where the block grows beyond the modulus.
constexpr int kMinFiller = 8;
/// Where the filler of a signature block begins, at the latest: 00 01, after a byte of the card's own.
constexpr int kFillerPosition = 3;

/// Reported for a signature with a key other than RSA.
constexpr int kOtherSignatureLength = 300;
/// Reported for a decrypted text, unless the input is longer.
constexpr CK_ULONG kPlaintextLength = 256;
constexpr CK_ULONG kMaxAnnounced = std::numeric_limits<int>::max();
/// With padding, more input does not fit into an extended command.
constexpr CK_ULONG kMaxInput = 0xFFFF - 16;

[[noreturn]] void refuseFinal()
{
    throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED);
}

/// An update step brings nothing.
void reportNothing(CK_ULONG* outLen)
{
    if (outLen != nullptr)
        *outLen = 0;
}

} // namespace

// --- Sign ----------------------------------------------------------------------------------------

// The where-text names decrypt.
CardOSMechanismSign::CardOSMechanismSign(CardOSPrivateKey& key, CK_MECHANISM_TYPE type)
    : CardOSPrivateKeyOperation(key.token(), key.index(), type, "CardOSMechanismSign::decrypt"), m_key(key)
{
}

void CardOSMechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    const bool isRSA = m_key.getKeyType() == CKK_RSA;
    if (answersLength(out, outLen, [&] { return isRSA ? m_key.keyLength() : kOtherSignatureLength; }))
        return;
    requireLogin();
    const Blob input = inputOf(data, dataLen, kMaxInput);
    // Read before the card is made ready: reading selects other files.
    const int size = m_key.keyLength();
    if (isRSA) {
        if (size == 0)
            throw PKCS11Exception(CKR_DEVICE_ERROR, "", where());
        requireRoom(outLen, size);
    }
    const Blob signature = token().whole([&] {
        // Without an environment to restore no result and no error, deliberately.
        return prepare(isRSA ? kUseCipherKeyV50 : kUseSignKeyV50) == SW_SUCCESS ? decipher(block(input, size))
                                                                                : Blob();
    });
    deliver(signature, out, outLen);
}

Blob CardOSMechanismSign::block(const Blob& data, int size) const
{
    if (type() == CKM_RSA_PKCS)
        return makePKCS1Block(kSignatureBlock, data, size, kMinFiller);
    if (type() != CKM_RSA_X_509)
        throw PKCS11Exception(CKR_MECHANISM_INVALID, "", "CardOSMechanismSign::sign");
    if (data.size() > size)
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "CardOSMechanismSign::sign");
    return Blob(size - data.size(), 0x00) + data;
}

void CardOSMechanismSign::signUpdate(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/) {}

void CardOSMechanismSign::signFinal(CK_BYTE* /*out*/, CK_ULONG* /*outLen*/)
{
    refuseFinal();
}

// --- Decrypt -------------------------------------------------------------------------------------

CardOSMechanismDecrypt::CardOSMechanismDecrypt(CardOSPrivateKey& key, CK_MECHANISM_TYPE type)
    : CardOSPrivateKeyOperation(key.token(), key.index(), type, "CardOSMechanismDecrypt::decrypt")
{
}

void CardOSMechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    const auto announced = static_cast<int>(std::clamp(dataLen, kPlaintextLength, kMaxAnnounced));
    if (answersLength(out, outLen, announced))
        return;
    requireLogin();
    const Blob input = inputOf(data, dataLen, kMaxInput);
    Blob block = token().whole([&] {
        require(prepare(kUseCipherKeyV50));
        return decipher(input);
    });
    if (type() == CKM_RSA_PKCS)
        block = stripPKCS1Block(block);
    else if (!token().isV50())
        block = stripLeadingZeros(block);
    deliver(block, out, outLen);
}

void CardOSMechanismDecrypt::decryptUpdate(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/, CK_BYTE* /*out*/,
                                           CK_ULONG* outLen)
{
    reportNothing(outLen);
}

void CardOSMechanismDecrypt::decryptFinal(CK_BYTE* /*out*/, CK_ULONG* /*outLen*/)
{
    refuseFinal();
}

// --- Encrypt -------------------------------------------------------------------------------------

CardOSMechanismEncrypt::CardOSMechanismEncrypt(CardOSPublicKey& key, CK_MECHANISM_TYPE type)
    : CardOSPublicKeyOperation(key, type, "CardOSMechanismEncrypt::encrypt")
{
}

void CardOSMechanismEncrypt::encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, [&] { return key().keyLength(); }))
        return;
    if (loadsKey())
        requireLogin();
    const Blob input = inputOf(data, dataLen, kMaxInput);
    Blob field = input;
    if (type() == CKM_RSA_PKCS || loadsKey()) {
        const int size = key().keyLength();
        if (type() == CKM_RSA_PKCS) {
            if (size == 0) {
                // No result and no error, deliberately.
                *outLen = 0;
                return;
            }
            // The filler is FF bytes, not random ones, deliberately.
            field = makePKCS1Block(kEncryptionBlock, input, size, kMinFiller);
        }
        requireRoom(outLen, size);
    }
    // The first byte is the card's padding indicator.
    deliver(encipher(field).slice(1), out, outLen);
}

void CardOSMechanismEncrypt::encryptUpdate(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/, CK_BYTE* /*out*/,
                                           CK_ULONG* outLen)
{
    reportNothing(outLen);
}

void CardOSMechanismEncrypt::encryptFinal(CK_BYTE* /*out*/, CK_ULONG* /*outLen*/)
{
    refuseFinal();
}

// --- Verify --------------------------------------------------------------------------------------

CardOSMechanismVerify::CardOSMechanismVerify(CardOSPublicKey& key, CK_MECHANISM_TYPE type)
    : CardOSPublicKeyOperation(key, type, "CardOSMechanismVerify::verify")
{
}

void CardOSMechanismVerify::verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen)
{
    if (loadsKey())
        requireLogin();
    Blob expected = inputOf(data, dataLen, kMaxInput);
    const Blob field = inputOf(signature, signatureLen, kMaxInput);
    const Blob found = signedData(encipher(field));
    if (type() == CKM_RSA_X_509)
        expected = stripLeadingZeros(expected);
    // A block that holds nothing proves nothing, not even about empty data.
    // The where-text names a decryption, deliberately.
    if (found.empty() || found != expected)
        throw PKCS11Exception(CKR_SIGNATURE_INVALID, "", "CardOSMechanismVerify::decrypt");
}

Blob CardOSMechanismVerify::signedData(const Blob& block) const
{
    if (type() == CKM_RSA_X_509)
        return stripLeadingZeros(block);
    if (type() != CKM_RSA_PKCS)
        throw PKCS11Exception(CKR_MECHANISM_INVALID, "", "CardOSMechanismVerify::verify");
    // Anything but filler would leave room for a forgery: a cube that ends as it should.
    const Blob filled = block.slice(kFillerPosition);
    const auto separator = std::find_if(filled.begin(), filled.end(), [](int byte) { return byte != 0xFF; });
    return separator == filled.end() || *separator != 0x00 ? Blob() : Blob(separator + 1, filled.end());
}

void CardOSMechanismVerify::verifyUpdate(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/) {}

void CardOSMechanismVerify::verifyFinal(CK_BYTE* /*signature*/, CK_ULONG /*signatureLen*/)
{
    refuseFinal();
}

void CardOSMechanismVerify::verifyRecover(CK_BYTE* /*out*/, CK_ULONG* /*outLen*/, CK_BYTE* /*signature*/,
                                          CK_ULONG /*signatureLen*/)
{
    refuseFinal();
}

} // namespace PKCS11
