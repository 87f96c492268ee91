#pragma once

#include "pkcs11/drivers/acos/AcosMechanisms.h"

namespace PKCS11 {

/// Operations with key 1 or 2 of an education card.
class AcosEDUMechanismSign final : public AcosMechanismSign {
public:
    AcosEDUMechanismSign(AcosToken& token, int keyNumber, int knownLength);
};

class AcosEDUMechanismDecrypt final : public AcosMechanismDecrypt {
public:
    AcosEDUMechanismDecrypt(AcosToken& token, int keyNumber, CK_MECHANISM_TYPE type);
};

} // namespace PKCS11
