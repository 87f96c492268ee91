/// Look-ups in a caller's attribute template. All take the first attribute of the type in template order; a
/// null template has none.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// The first entry of the type, or null.
const CK_ATTRIBUTE* findAttribute(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count);

/// CKA_CLASS of the template; false when it is missing or shorter than a number.
bool findObjectClass(const CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_CLASS& objectClass);

/// Copies the value. A null value with a length of all ones ("unavailable") counts as empty. Throws what
/// Blob::fromMemory throws.
Blob valueOf(const CK_ATTRIBUTE& attribute);

/// Throws CKR_ARGUMENTS_BAD for a null template with a count and for a null value with a length (a length of
/// all ones, "unavailable", counts as none).
void checkTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// Belong to the interface; nothing in the library calls them.

/// Clears `out`, copies the value if there is one and returns whether the type was found. Throws what
/// Blob::fromMemory throws.
bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, Blob& out);
/// Stores pointer and length, each only where asked for.
bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, void** pValue,
                        CK_ULONG* pLen);
/// Stores the position.
bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, int* index);

} // namespace PKCS11
