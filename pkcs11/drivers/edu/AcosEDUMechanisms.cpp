#include "pkcs11/drivers/edu/AcosEDUMechanisms.h"

namespace PKCS11 {

namespace {

// Signing reports the decryption's name too, deliberately.
constexpr char kWhere[] = "AcosEDUMechanismDecrypt::decrypt";

constexpr AcosKeyAccess accessTo(int keyNumber)
{
    AcosKeyAccess access{static_cast<unsigned char>(0x80 + keyNumber), kWhere};
    access.namesFailures = true;
    access.decryptsRaw = true;
    return access;
}

} // namespace

AcosEDUMechanismSign::AcosEDUMechanismSign(AcosToken& token, int keyNumber, int knownLength)
    : AcosMechanismSign(token, accessTo(keyNumber), knownLength)
{
}

AcosEDUMechanismDecrypt::AcosEDUMechanismDecrypt(AcosToken& token, int keyNumber, CK_MECHANISM_TYPE type)
    : AcosMechanismDecrypt(token, accessTo(keyNumber), type)
{
}

} // namespace PKCS11
