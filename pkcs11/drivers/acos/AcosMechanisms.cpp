#include "pkcs11/drivers/acos/AcosMechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

// The byte behind 84 01 is the key reference.
constexpr char kMseSetSignature[] = "002241A406840100800101";
constexpr char kMseSetDecryption[] = "002281B803840100";
constexpr int kKeyReferencePosition = 7;

constexpr char kInternalAuthenticate[] = "00881000";
constexpr char kPsoDecipher[] = "002a8086";
constexpr unsigned char kPaddingIndicator = 0x00;

/// Length of every answer to a null output, whatever the key.
constexpr int kAnnouncedLength = 256;
constexpr CK_ULONG kMaxShortData = 255;

void setSecurityEnvironment(AcosToken& token, const char* command, const AcosKeyAccess& access)
{
    Blob mse = PKCS11_hex2blob(command);
    mse.at(kKeyReferencePosition) = access.reference;
    requireSuccess(token.card().SendCmd(mse), "", access.failureWhere);
}

} // namespace

void AcosMechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kAnnouncedLength))
        return;
    m_token.requireLogin(m_access.loginWhere);
    const Blob input = m_access.signWrapsLc ? inputOf(data, dataLen) : inputOf(data, dataLen, kMaxShortData);
    m_token.prepareKeyOperation();
    setSecurityEnvironment(m_token, kMseSetSignature, m_access);
    Blob signature;
    const int sw = m_token.card().Send(PKCS11_hex2blob(kInternalAuthenticate), input, 0, signature);
    requireSuccess(sw, "", m_access.failureWhere);
    deliver(signature, out, outLen);
}

void AcosMechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kAnnouncedLength))
        return;
    m_token.requireLogin(m_access.loginWhere);
    // The padding indicator takes one of the 255 bytes.
    Blob field(1, kPaddingIndicator);
    field.append(inputOf(data, dataLen, kMaxShortData - 1));
    m_token.prepareKeyOperation();
    setSecurityEnvironment(m_token, kMseSetDecryption, m_access);
    Blob plaintext;
    const int sw = m_token.card().Send(PKCS11_hex2blob(kPsoDecipher), field, 0, plaintext);
    requireSuccess(sw, "", m_access.failureWhere);
    if (m_type != CKM_RSA_PKCS && !(m_access.decryptsRaw && m_type == CKM_RSA_X_509))
        plaintext.wipe();
    deliver(plaintext, out, outLen);
}

} // namespace PKCS11
