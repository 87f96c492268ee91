#include "pkcs11/desktop/SignInParts.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"

namespace PKCS11 {

namespace {

constexpr int kMostInParts = 0x10000;

} // namespace

void SignInParts::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (m_inParts)
        throw PKCS11Exception(CKR_OPERATION_ACTIVE, "", "SignInParts::sign");
    m_operation->sign(data, dataLen, out, outLen);
}

void SignInParts::signUpdate(CK_BYTE* data, CK_ULONG dataLen)
{
    m_parts.append(inputOf(data, dataLen, static_cast<CK_ULONG>(kMostInParts - m_parts.size())));
    m_inParts = true;
}

void SignInParts::signFinal(CK_BYTE* out, CK_ULONG* outLen)
{
    m_operation->sign(m_parts.data(), static_cast<CK_ULONG>(m_parts.size()), out, outLen);
    if (out != nullptr)
        m_parts.wipe();
}

} // namespace PKCS11
