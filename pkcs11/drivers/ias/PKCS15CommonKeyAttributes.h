#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

#include <optional>

namespace PKCS11 {

/// Bits of the first byte of a key's usage (ISO/IEC 7816-15, KeyUsageFlags).
enum PKCS15KeyUsage : unsigned char {
    PKCS15_USAGE_ENCRYPT = 0x80,
    PKCS15_USAGE_DECRYPT = 0x40,
    PKCS15_USAGE_SIGN = 0x20,
    PKCS15_USAGE_SIGN_RECOVER = 0x10,
    PKCS15_USAGE_WRAP = 0x08,
    PKCS15_USAGE_UNWRAP = 0x04,
    PKCS15_USAGE_VERIFY = 0x02,
    PKCS15_USAGE_VERIFY_RECOVER = 0x01,
};

/// Bits of the first byte of a key's access flags (ISO/IEC 7816-15, KeyAccessFlags).
enum PKCS15KeyAccess : unsigned char {
    PKCS15_ACCESS_SENSITIVE = 0x80,
    PKCS15_ACCESS_EXTRACTABLE = 0x40,
    PKCS15_ACCESS_ALWAYS_SENSITIVE = 0x20,
    PKCS15_ACCESS_NEVER_EXTRACTABLE = 0x10,
    PKCS15_ACCESS_LOCAL = 0x08,
};

/// What all keys have (ISO/IEC 7816-15, CommonKeyAttributes).
class PKCS15CommonKeyAttributes final : public PKCS15Record {
public:
    PKCS15CommonKeyAttributes();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    /// True when all these bits are set. Only the first byte of either bit string is looked at.
    bool GetKeyUsage(unsigned char flags) const;
    bool GetKeyAccess(unsigned char flags) const;
    // Belong to the interface; nothing in the library calls them.
    void SetKeyUsage(unsigned char flags, bool on);
    void SetKeyAccess(unsigned char flags, bool on);

    /// The one usage that matters here and stands in the second byte.
    bool isForNonRepudiation() const;
    /// The byte that names the key in the commands to the card, the last one of its INTEGER.
    std::optional<unsigned char> reference() const;

    Blob iD;
    /// Bit strings with their unused-bits bytes.
    Blob usage;
    Blob accessFlags;
    Blob native;
    Blob keyReference;
    /// GeneralizedTime.
    Blob startDate;
    Blob endDate;
};

} // namespace PKCS11
