#pragma once

#include "pkcs11/core/Table.h"

#include <memory>

namespace PKCS11 {

/// A table whose entries are all of one class and belong to it.
template <class Entry>
class OwningTable : public Table {
public:
    OwningTable() = default;
    ~OwningTable() override
    {
        for (unsigned long handle = 1; handle <= highWater(); ++handle)
            destroy(handle);
    }

    /// Calls action(handle, entry) for each entry, in ascending order of the handles; the action may destroy
    /// it.
    template <class Action>
    void forEach(Action action) const
    {
        for (unsigned long handle = 1; handle <= highWater(); ++handle) {
            if (Entry* entry = at(handle))
                action(handle, *entry);
        }
    }

    /// Takes the entry and returns its handle.
    unsigned long put(std::unique_ptr<Entry> entry)
    {
        const unsigned long handle = putEntry(entry.get());
        static_cast<void>(entry.release()); // the table holds it now
        return handle;
    }
    /// The entry under the handle, or null. Never throws.
    Entry* at(unsigned long handle) const { return static_cast<Entry*>(find(handle)); }
    /// Destroys the entry, if there is one, and frees its handle: first the handle, so that the entry's end
    /// does not meet it.
    void destroy(unsigned long handle)
    {
        const std::unique_ptr<Entry> entry(static_cast<Entry*>(Table::delEntry(handle)));
    }
};

} // namespace PKCS11
