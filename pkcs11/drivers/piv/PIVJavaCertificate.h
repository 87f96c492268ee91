#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class PIVJavaToken;

/// The certificate of a container; its value is set at construction of the token.
class PIVJavaCertificate final : public CardCertificate {
public:
    /// `word` is the key reference word of the container's key.
    PIVJavaCertificate(PIVJavaToken& token, unsigned short word);
};

} // namespace PKCS11
