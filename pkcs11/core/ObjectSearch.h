#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/token/Blob.h"

#include <vector>

namespace PKCS11 {

class Object;

/// A running search: a copy of its template, and the handle where it goes on. Without a start the template is
/// empty and matches everything.
class ObjectSearch {
public:
    /// Copies the template and starts at the first handle. A null template with a count, or one that cannot
    /// be read or held, matches nothing.
    void start(const CK_ATTRIBUTE* attributes, CK_ULONG count);
    void finish() { *this = ObjectSearch(); }
    /// The search goes on at the first handle: the objects are others.
    void rewind() { m_next = 1; }

    /// False for an object whose attributes cannot be read.
    bool matches(Object& object) const;
    unsigned long next() const { return m_next; }
    /// The search goes on after the handle.
    void passed(unsigned long handle) { m_next = handle + 1; }

private:
    struct Entry {
        CK_ATTRIBUTE_TYPE type;
        Blob value;
    };
    std::vector<Entry> m_template;
    bool m_matchesNothing = false;
    unsigned long m_next = 1;
};

} // namespace PKCS11
