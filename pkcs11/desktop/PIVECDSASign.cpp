#include "pkcs11/desktop/PIVECDSASign.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"
#include "pkcs11/token/ByteOrder.h"

namespace PKCS11 {

namespace {

constexpr char kWhere[] = "PIVECDSASign::sign";

/// The number with zeros in front of it, `length` bytes.
Blob widened(const Blob& number, int length)
{
    return Blob(length - number.size(), 0x00) + number;
}

/// The card takes a challenge of one length only.
Blob challengeOf(const Blob& hash, int length)
{
    return hash.size() < length ? widened(hash, length) : hash.slice(0, length);
}

/// r or s. Throws CKR_DATA_INVALID for what is no number of that length.
Blob numberOf(const BERCoder& node, int length)
{
    const Blob number = stripLeadingZeros(node.getValue());
    if (node.getTag() != kInteger || number.size() > length)
        throw PKCS11Exception(CKR_DATA_INVALID);
    return widened(number, length);
}

/// The two numbers of an ECDSA-Sig-Value (RFC 3279, 2.2.3).
Blob joinedNumbers(const Blob& signature, int length)
{
    try {
        BERCoder node;
        node.import(signature, 0);
        if (node.getTag() == kSequence && node.getSize() == 2)
            return numberOf(node.component(0), length) + numberOf(node.component(1), length);
    } catch (const PKCS11Exception& failure) {
        throw PKCS11Exception(CKR_DEVICE_ERROR, failure.what(), kWhere);
    }
    throw PKCS11Exception(CKR_DEVICE_ERROR, "no signature", kWhere);
}

} // namespace

void PIVECDSASign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, 2 * m_fieldLength))
        return;
    m_key.token().requireLogin(kWhere);
    requireRoom(outLen, 2 * m_fieldLength);
    const Blob hash = inputOf(data, dataLen);
    if (hash.empty())
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", kWhere);
    const Blob signature = m_key.authenticate(challengeOf(hash, m_fieldLength));
    deliver(joinedNumbers(signature, m_fieldLength), out, outLen);
}

} // namespace PKCS11
