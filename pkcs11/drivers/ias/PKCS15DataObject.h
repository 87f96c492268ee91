#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of the data object directory (ISO/IEC 7816-15, DataContainerObjectChoice).
class PKCS15DataObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15DataObject();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    /// UTF-8.
    Blob applicationName;
    Blob applicationOID;
    /// What an object of type A1 is known by.
    Blob objectOID;
    /// Where the value is.
    PKCS15Path path;
};

} // namespace PKCS11
