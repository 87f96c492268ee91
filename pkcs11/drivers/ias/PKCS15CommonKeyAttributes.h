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
class PKCS15CommonKeyAttributes final : public PKCS15Sequence {
public:
    PKCS15CommonKeyAttributes();

    const Blob& iD() const { return field(0); }
    void setID(const Blob& iD) { setField(0, iD); }
    /// Bit strings with their unused-bits bytes.
    const Blob& usage() const { return field(1); }
    void setUsage(const Blob& usage) { setField(1, usage); }
    const Blob& accessFlags() const { return field(2); }
    void setAccessFlags(const Blob& accessFlags) { setField(2, accessFlags); }
    const Blob& native() const { return field(3); }
    void setNative(const Blob& native) { setField(3, native); }
    const Blob& keyReference() const { return field(4); }
    void setKeyReference(const Blob& keyReference) { setField(4, keyReference); }
    /// The byte that names the key in the commands to the card, the last one of its INTEGER.
    std::optional<unsigned char> reference() const;
    /// GeneralizedTime.
    const Blob& startDate() const { return field(5); }
    void setStartDate(const Blob& date) { setField(5, date); }
    const Blob& endDate() const { return field(6); }
    void setEndDate(const Blob& date) { setField(6, date); }

    /// True when all these bits are set. Only the first byte of either bit string is looked at.
    bool GetKeyUsage(unsigned char flags) const;
    bool GetKeyAccess(unsigned char flags) const;
    void SetKeyUsage(unsigned char flags, bool on);
    void SetKeyAccess(unsigned char flags, bool on);
    /// The one usage that matters here and stands in the second byte.
    bool isForNonRepudiation() const;
};

} // namespace PKCS11
