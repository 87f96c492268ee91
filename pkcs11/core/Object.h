#pragma once

#include "pkcs11/core/AttributeTable.h"
#include "pkcs11/token/PKCS11Attrs.h"

#include <memory>

namespace PKCS11 {

/// A PKCS#11 object. Its class tree says through attributeTable() which attributes exist; the values live in
/// the attribute store, in members of subclasses, or on the card, from where a getter reads them on first
/// use.
class Object {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    virtual CK_OBJECT_CLASS getClass() = 0;

    /// Answers the template entries that the object knows. Entries that it does not know, that are too small,
    /// or that repeat an earlier type get a length of all ones, and the call throws
    /// CKR_ATTRIBUTE_TYPE_INVALID (0x12) after the whole template was processed.
    virtual void getAttribute(CK_ATTRIBUTE* attributes, CK_ULONG count);
    /// Applies the entries that the object knows; read-only and unknown ones are ignored. Throws
    /// CKR_ATTRIBUTE_VALUE_INVALID (0x13) for a value shorter than its type, before anything is applied.
    virtual void setAttribute(const CK_ATTRIBUTE* attributes, CK_ULONG count);
    /// True when every entry of the template is known and equal; `matched` counts the entries that subclasses
    /// have matched already. What may have to be read from the card is compared last.
    virtual bool testObject(const CK_ATTRIBUTE* attributes, CK_ULONG count, CK_ULONG matched);

    /// Removes the object from the card. The base does nothing.
    virtual void Delete() {}
    /// Size of the object in bytes. The base throws CKR_FUNCTION_NOT_SUPPORTED (0x54).
    virtual CK_ULONG getObjectSize();
    /// The base throws CKR_FUNCTION_NOT_SUPPORTED (0x54).
    virtual std::unique_ptr<Object> createCopy(Object* original);

protected:
    virtual const AttributeTable& attributeTable() const;
    static const AttributeTable kAttributes;

    Blob bytes(CK_ATTRIBUTE_TYPE type) const;
    void setBytes(CK_ATTRIBUTE_TYPE type, const Blob& value) { m_attributes.SetParam(type, value); }
    /// True only for a stored 1.
    CK_BBOOL flag(CK_ATTRIBUTE_TYPE type) const { return m_attributes.GetParam(type) ? CK_TRUE : CK_FALSE; }
    /// Stores 1 when the value is exactly 1, otherwise 0.
    void setFlag(CK_ATTRIBUTE_TYPE type, CK_BBOOL value) { m_attributes.SetParam(type, value); }

private:
    PKCS11Attrs m_attributes;
};

} // namespace PKCS11
