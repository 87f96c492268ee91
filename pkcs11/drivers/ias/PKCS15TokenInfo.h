#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// EF.TokenInfo (ISO/IEC 7816-15, CIAInfo). Broken bytes keep what was read before the break.
class PKCS15TokenInfo final : public PKCS15Sequence {
public:
    PKCS15TokenInfo();

    const Blob& version() const { return field(0); }
    void setVersion(const Blob& version) { setField(0, version); }
    const Blob& serialNumber() const { return field(1); }
    void setSerialNumber(const Blob& serialNumber) { setField(1, serialNumber); }
    const Blob& manufacturerID() const { return field(2); }
    void setManufacturerID(const Blob& manufacturerID) { setField(2, manufacturerID); }
    const Blob& label() const { return field(3); }
    void setLabel(const Blob& label) { setField(3, label); }
    const Blob& tokenflags() const { return field(4); }
    void setTokenflags(const Blob& tokenflags) { setField(4, tokenflags); }
    const Blob& preferredLanguage() const { return field(5); }
    void setPreferredLanguage(const Blob& language) { setField(5, language); }
    const Blob& issuerId() const { return field(6); }
    void setIssuerId(const Blob& issuerId) { setField(6, issuerId); }
    const Blob& holderId() const { return field(7); }
    void setHolderId(const Blob& holderId) { setField(7, holderId); }
    const Blob& lastUpdate() const { return field(8); }
    void setLastUpdate(const Blob& lastUpdate) { setField(8, lastUpdate); }
};

} // namespace PKCS11
