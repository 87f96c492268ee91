#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class CardOSToken;

/// The data object of an object information record, in a file that is read on demand.
class CardOSData final : public CardData {
public:
    /// Reads the attribute file; `index` is the object's place in the directory. Throws as CardOSToken's
    /// constructor does.
    CardOSData(CardOSToken& token, int index);

private:
    CardValue readValue() override;

    CardOSToken& m_token;
    int m_index;
};

} // namespace PKCS11
