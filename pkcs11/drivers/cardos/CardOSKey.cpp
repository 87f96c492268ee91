#include "pkcs11/drivers/cardos/CardOSKey.h"

#include "pkcs11/token/ByteOrder.h"

namespace PKCS11 {

CK_KEY_TYPE keyTypeOf(const PKCS11Attrs& attributes)
{
    Blob value;
    attributes.GetParam(CKA_KEY_TYPE, value);
    const Blob bigEndian = long2blob(CKK_EC);
    const Blob littleEndian(bigEndian.rbegin(), bigEndian.rend());
    const bool isEC = value == Blob(1, CKK_EC) || value == bigEndian || value == littleEndian;
    return isEC ? CKK_EC : CKK_RSA;
}

} // namespace PKCS11
