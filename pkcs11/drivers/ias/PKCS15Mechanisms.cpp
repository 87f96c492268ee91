#include "pkcs11/drivers/ias/PKCS15Mechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/ias/IASToken.h"
#include "pkcs11/drivers/ias/PKCS15Objects.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

// Algorithm reference (80) and key reference (84); the key's byte follows.
constexpr char kMseSetSignature[] = "002241a4068001028401";
constexpr char kMseSetDecryption[] = "002241b80680011a8401";
constexpr char kInternalAuthenticate[] = "00880000";
constexpr char kPsoDecipher[] = "002a8086";

constexpr unsigned char kPaddingIndicator = 0x81;
/// Reported for a decrypted text, whatever the key.
constexpr int kPlaintextLength = 256;

constexpr char kSignWhere[] = "PKCS15MechanismSign::sign";
constexpr char kDecryptWhere[] = "PKCS15MechanismDecrypt::decrypt";

void setSecurityEnvironment(const PKCS15PrivateKey& key, const char* command, unsigned char reference)
{
    Blob mse = PKCS11_hex2blob(command);
    mse.push_back(reference);
    // Decryption reports the signature's method, deliberately.
    requireSuccess(key.token().card().SendCmd(mse), "Manage Security Environment", kSignWhere);
}

/// What the card computed, gathered over all pieces of its answer.
Blob resultOf(PCSCSlot& card, const Blob& header, const Blob& data, const char* where)
{
    int sw = 0;
    Blob answer = card.SendCard(header, data, &sw);
    if (answer.empty() || isError(sw))
        throw PKCS11Exception(CKR_DEVICE_ERROR, "", where);
    return answer;
}

/// PSO DECIPHER of padding indicator and ciphertext, in a chain where one command does not hold them.
Blob decipher(PCSCSlot& card, const Blob& field)
{
    Blob header = PKCS11_hex2blob(kPsoDecipher);
    int sent = 0;
    for (; field.size() - sent > kMaxShortData; sent += kMaxShortData) {
        header.at(0) = kChained;
        requireSuccess(card.Send(header, field.slice(sent, kMaxShortData)), "", kDecryptWhere);
    }
    header.at(0) = 0x00;
    return resultOf(card, header, field.slice(sent), kDecryptWhere);
}

} // namespace

void PKCS15MechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, [&] { return m_key.signatureLength(); }))
        return;
    // The where-text names decrypt.
    m_key.token().requireLogin("PKCS15MechanismSign::decrypt");
    const Blob input = inputOf(data, dataLen, kMaxShortData);
    requireRoom(outLen, m_key.knownSignatureLength());
    const unsigned char reference = m_key.keyReference(kSignWhere);
    const Blob signature = m_key.token().whole([&] {
        m_key.token().replayUserPin();
        setSecurityEnvironment(m_key, kMseSetSignature, reference);
        return resultOf(m_key.token().card(), PKCS11_hex2blob(kInternalAuthenticate), input, kSignWhere);
    });
    deliver(signature, out, outLen);
}

void PKCS15MechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kPlaintextLength))
        return;
    m_key.token().requireLogin(kDecryptWhere);
    Blob field(1, kPaddingIndicator);
    field.append(inputOf(data, dataLen));
    const unsigned char reference = m_key.keyReference(kDecryptWhere);
    const Blob plaintext = m_key.token().whole([&] {
        m_key.token().replayUserPin();
        setSecurityEnvironment(m_key, kMseSetDecryption, reference);
        return decipher(m_key.token().card(), field);
    });
    deliver(plaintext, out, outLen);
}

} // namespace PKCS11
