#include "pkcs11/core/Table.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr std::size_t kInitialCapacity = 10;
constexpr std::size_t kIncrement = 5;

} // namespace

Table::Table() : m_entries(kInitialCapacity, nullptr) {}

unsigned long Table::putEntry(void* entry)
{
    auto free = std::find(m_entries.begin(), m_entries.end(), nullptr);
    const auto index = static_cast<std::size_t>(free - m_entries.begin());
    if (free == m_entries.end())
        m_entries.resize(m_entries.size() + kIncrement, nullptr);
    m_entries[index] = entry;
    m_highWater = std::max(m_highWater, static_cast<std::int32_t>(index + 1));
    return index + 1;
}

void* Table::getEntry(unsigned long handle)
{
    void* entry = find(handle);
    if (entry == nullptr)
        throw PKCS11Exception(CKR_OBJECT_HANDLE_INVALID);
    return entry;
}

void* Table::delEntry(unsigned long handle)
{
    void* entry = find(handle);
    if (entry != nullptr)
        m_entries[handle - 1] = nullptr;
    return entry;
}

void Table::delEntry(void* entry)
{
    if (entry == nullptr)
        return;
    auto found = std::find(m_entries.begin(), m_entries.end(), entry);
    if (found != m_entries.end())
        *found = nullptr;
}

unsigned long Table::addNewEntry(void* entry)
{
    if (entry == nullptr)
        return 0;
    auto found = std::find(m_entries.begin(), m_entries.end(), entry);
    if (found != m_entries.end())
        return static_cast<unsigned long>(found - m_entries.begin()) + 1;
    return putEntry(entry);
}

unsigned long Table::addNewEntry(Table* other)
{
    for (unsigned long handle = 1; handle <= other->highWater(); ++handle)
        addNewEntry(other->find(handle));
    return 0;
}

unsigned long Table::delEntry(Table* other)
{
    for (unsigned long handle = 1; handle <= other->highWater(); ++handle) {
        try {
            delEntry(other->find(handle));
        } catch (const PKCS11Exception&) {
            // An entry that cannot be removed does not stop the rest.
        }
    }
    return 0;
}

void* Table::find(unsigned long handle) const
{
    return handle - 1 < m_entries.size() ? m_entries[handle - 1] : nullptr;
}

} // namespace PKCS11
