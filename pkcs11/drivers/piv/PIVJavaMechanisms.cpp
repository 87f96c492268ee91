#include "pkcs11/drivers/piv/PIVJavaMechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/common/PKCS1.h"
#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr unsigned char kSignatureBlock = 0x01;

/// The block to sign; padded for every mechanism, CKM_RSA_X_509 too.
Blob signatureBlock(const Blob& data, int size)
{
    if (data.size() >= size)
        return data;
    if (data.size() > size - 3)
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "PIVJavaMechanismSign::sign");
    return makePKCS1Block(kSignatureBlock, data, size);
}

} // namespace

void PIVJavaMechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    const int size = m_key.getModulus().size();
    if (answersLength(out, outLen, size))
        return;
    m_key.token().requireLogin("PIVJavaMechanismSign::sign");
    requireRoom(outLen, size);
    // Of longer data the first bytes are signed.
    const CK_ULONG used = std::min(dataLen, static_cast<CK_ULONG>(size));
    const Blob block = signatureBlock(inputOf(data, used), size);
    deliver(m_key.authenticate(block), out, outLen);
}

void PIVJavaMechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, m_reportedLength))
        return;
    // The PIN counts here, not the login.
    m_key.token().requireUserPin("PIVJavaMechanismDecrypt::decrypt");
    const Blob block = m_key.authenticate(inputOf(data, dataLen));
    deliver(m_type == CKM_RSA_PKCS ? stripPKCS1Block(block) : block, out, outLen);
}

PIVJavaMechanismEncrypt::PIVJavaMechanismEncrypt(PIVJavaToken& token) : m_token(token)
{
    m_token.requireUserPin("PIVJavaMechanismEncrypt::PIVJavaMechanismEncrypt");
    m_token.replayUserPin();
}

void PIVJavaMechanismEncrypt::encrypt(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kPIVReportedLength))
        return;
    m_token.requireUserPin("PIVJavaMechanismEncrypt::encrypt");
    m_token.replayUserPin();
    deliver({}, out, outLen);
}

void PIVJavaMechanismVerify::verify(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/, CK_BYTE* /*signature*/,
                                    CK_ULONG /*signatureLen*/)
{
}

void PIVJavaMechanismVerify::verifyUpdate(CK_BYTE* /*data*/, CK_ULONG /*dataLen*/) {}

void PIVJavaMechanismVerify::verifyFinal(CK_BYTE* /*signature*/, CK_ULONG /*signatureLen*/) {}

void PIVJavaMechanismVerify::verifyRecover(CK_BYTE* /*out*/, CK_ULONG* /*outLen*/, CK_BYTE* /*signature*/,
                                           CK_ULONG /*signatureLen*/)
{
}

} // namespace PKCS11
