#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// EF.TokenInfo (ISO/IEC 7816-15, CIAInfo). Broken bytes keep what was read before the break.
class PKCS15TokenInfo final : public PKCS15Record {
public:
    PKCS15TokenInfo() : PKCS15Record(nullptr) {}

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    Blob version;
    Blob serialNumber;
    Blob manufacturerID;
    Blob label;
    Blob tokenflags;
    Blob preferredLanguage;
    Blob issuerId;
    Blob holderId;
    /// GeneralizedTime.
    Blob lastUpdate;
};

} // namespace PKCS11
