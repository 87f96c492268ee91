#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of the data object directory (ISO/IEC 7816-15, DataContainerObjectChoice).
class PKCS15DataObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15DataObject();

    /// UTF-8.
    const Blob& applicationName() const { return m_classAttributes.field(0); }
    void setApplicationName(const Blob& name) { m_classAttributes.setField(0, name); }
    const Blob& applicationOID() const { return m_classAttributes.field(1); }
    void setApplicationOID(const Blob& oid) { m_classAttributes.setField(1, oid); }
    /// Where the value is.
    const PKCS15Path& path() const { return m_path; }
    PKCS15Path& path() { return m_path; }
    /// What an object of type A1 is known by.
    const Blob& objectOID() const { return m_objectOID; }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    PKCS15Sequence m_classAttributes;
    PKCS15Path m_path;
    Blob m_objectOID;
};

} // namespace PKCS11
