#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class CardOSToken;

/// The certificate of an object information record, in a file that is read on demand.
class CardOSCertificate final : public CardCertificate {
public:
    /// Reads the attribute file; `index` is the object's place in the directory. Throws as CardOSToken's
    /// constructor does.
    CardOSCertificate(CardOSToken& token, int index);

private:
    CardValue readValue() override;

    CardOSToken& m_token;
    int m_index;
};

} // namespace PKCS11
