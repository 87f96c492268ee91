#pragma once

#include "pkcs11/Cryptoki.h"

#include <utility>
#include <vector>

/// An attribute store: copies of attribute values by type, in the order of their insertion.
class TokenObject {
public:
    TokenObject() = default;
    /// Starts with CKA_CLASS and CKA_CERTIFICATE_TYPE, then copies the list.
    TokenObject(CK_OBJECT_CLASS objectClass, CK_CERTIFICATE_TYPE certificateType,
                const std::vector<CK_ATTRIBUTE>& attributes);

    /// Replaces the value. Throws VantorException (5) for a null value with a length.
    void set(CK_ATTRIBUTE_TYPE type, const void* value, CK_ULONG length);
    bool has(CK_ATTRIBUTE_TYPE type) const;
    /// The stored attribute, its memory owned by the store. Throws VantorException (5) for a type that is
    /// missing.
    CK_ATTRIBUTE get(CK_ATTRIBUTE_TYPE type) const;

private:
    using Entry = std::pair<CK_ATTRIBUTE_TYPE, std::vector<unsigned char>>;
    std::vector<Entry> m_attributes;
};
