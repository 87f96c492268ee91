#pragma once

#include <cstdint>
#include <vector>

namespace PKCS11 {

/// A growable array of untyped pointers in which a handle is the index plus one. Handles start at 1, the
/// lowest free one is reused, and 0 is never valid. A table does not own what it points to; its subclasses
/// do.
class Table {
public:
    Table();
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    virtual ~Table() = default;

    /// Stores the pointer in the lowest free position and returns its handle.
    virtual unsigned long putEntry(void* entry);
    /// Throws CKR_OBJECT_HANDLE_INVALID (0x82) for a handle without an entry.
    virtual void* getEntry(unsigned long handle);
    /// Frees the handle and returns what stood there, null when nothing did.
    virtual void* delEntry(unsigned long handle);
    /// Frees the first position that holds the pointer.
    virtual void delEntry(void* entry);

    // Belong to the interface; nothing in the library calls them.

    /// Inserts unless the pointer is there already; returns its handle, 0 for null.
    unsigned long addNewEntry(void* entry);
    unsigned long addNewEntry(Table* other);
    unsigned long delEntry(Table* other);

    /// The largest handle ever issued.
    unsigned long highWater() const { return static_cast<unsigned long>(m_highWater); }
    /// Number of handle positions.
    unsigned long capacity() const { return m_entries.size(); }

protected:
    /// The entry under the handle, or null. Never throws.
    void* find(unsigned long handle) const;

private:
    std::vector<void*> m_entries;
    std::int32_t m_highWater = 0;
};

} // namespace PKCS11
