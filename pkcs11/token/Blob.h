#pragma once

#include "pkcs11/Cryptoki.h"

#include <cstddef>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace PKCS11 {

/// Overwrites memory with zeros in a way that the optimiser keeps.
void cleanse(void* memory, std::size_t length) noexcept;

/// Allocator that wipes what it gives back, so that no PIN and no APDU stays on the heap.
template <class T>
struct CleansingAllocator {
    using value_type = T;

    CleansingAllocator() = default;
    template <class U>
    explicit CleansingAllocator(const CleansingAllocator<U>& /*other*/) noexcept
    {
    }

    T* allocate(std::size_t count)
    {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T))
            throw std::bad_alloc();
        return static_cast<T*>(::operator new(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t count) noexcept
    {
        cleanse(memory, count * sizeof(T));
        ::operator delete(memory);
    }

    friend bool operator==(const CleansingAllocator& /*a*/, const CleansingAllocator& /*b*/) { return true; }
    friend bool operator!=(const CleansingAllocator& /*a*/, const CleansingAllocator& /*b*/) { return false; }
};

/// The growable byte buffer of every APDU, response, file content and attribute value. Sizes and indices are
/// int and count bytes. Memory that a Blob gives back is wiped.
class Blob {
    using Bytes = std::vector<unsigned char, CleansingAllocator<unsigned char>>;

public:
    using value_type = unsigned char;
    using iterator = Bytes::iterator;
    using const_iterator = Bytes::const_iterator;
    using reverse_iterator = Bytes::reverse_iterator;
    using const_reverse_iterator = Bytes::const_reverse_iterator;

    Blob() = default;
    /// Throws CKR_BUFFER_TOO_SMALL (0x150) for a negative count, as all functions here that take one.
    Blob(int count, unsigned char fill);
    /// The bytes of the text without its terminator; not hexadecimal (see PKCS11_hex2blob).
    explicit Blob(const char* text);
    explicit Blob(const std::string& text);
    template <class Iterator, class = std::enable_if_t<!std::is_arithmetic_v<Iterator>>>
    Blob(Iterator first, Iterator last) : m_bytes(first, last)
    {
    }

    /// Copies a caller's memory. Throws CKR_ARGUMENTS_BAD for a null pointer with a length, CKR_HOST_MEMORY
    /// for more than 16 MiB, which no card and no honest caller needs.
    static Blob fromMemory(const void* memory, CK_ULONG length);

    /// Unchecked; for bytes from a card or a caller use at().
    unsigned char& operator[](int index) { return m_bytes[static_cast<std::size_t>(index)]; }
    const unsigned char& operator[](int index) const { return m_bytes[static_cast<std::size_t>(index)]; }
    /// Throws CKR_BUFFER_TOO_SMALL (0x150) outside the buffer.
    unsigned char& at(int index);
    const unsigned char& at(int index) const;

    unsigned char& front() { return m_bytes.front(); }
    const unsigned char& front() const { return m_bytes.front(); }
    unsigned char& back() { return m_bytes.back(); }
    const unsigned char& back() const { return m_bytes.back(); }
    unsigned char* data() { return m_bytes.data(); }
    const unsigned char* data() const { return m_bytes.data(); }

    iterator begin() { return m_bytes.begin(); }
    const_iterator begin() const { return m_bytes.begin(); }
    iterator end() { return m_bytes.end(); }
    const_iterator end() const { return m_bytes.end(); }
    reverse_iterator rbegin() { return m_bytes.rbegin(); }
    const_reverse_iterator rbegin() const { return m_bytes.rbegin(); }
    reverse_iterator rend() { return m_bytes.rend(); }
    const_reverse_iterator rend() const { return m_bytes.rend(); }

    int size() const { return static_cast<int>(m_bytes.size()); }
    int capacity() const { return static_cast<int>(m_bytes.capacity()); }
    bool empty() const { return m_bytes.empty(); }

    iterator insert(const_iterator position, unsigned char byte) { return m_bytes.insert(position, byte); }
    void insert(const_iterator position, int count, unsigned char byte);
    template <class Iterator, class = std::enable_if_t<!std::is_arithmetic_v<Iterator>>>
    void insert(const_iterator position, Iterator first, Iterator last)
    {
        m_bytes.insert(position, first, last);
    }
    void push_back(unsigned char byte) { m_bytes.push_back(byte); }
    void pop_back() { m_bytes.pop_back(); }
    iterator erase(const_iterator position) { return m_bytes.erase(position); }
    iterator erase(const_iterator first, const_iterator last) { return m_bytes.erase(first, last); }
    void clear() { m_bytes.clear(); }
    void assign(int count, unsigned char fill);
    void resize(int count, unsigned char fill = 0);
    void reserve(int count);
    void swap(Blob& other) noexcept { m_bytes.swap(other.m_bytes); }

    /// Adds the other's bytes at the end.
    Blob& append(const Blob& other);
    /// The bytes from first on, at most count of them; what lies outside the buffer is left out.
    Blob slice(int first, int count = std::numeric_limits<int>::max()) const;
    /// Empties the buffer and wipes its memory at once, the part beyond size() too.
    void wipe() noexcept;

    friend bool operator==(const Blob& a, const Blob& b) { return a.m_bytes == b.m_bytes; }
    friend bool operator!=(const Blob& a, const Blob& b) { return a.m_bytes != b.m_bytes; }
    friend bool operator<(const Blob& a, const Blob& b) { return a.m_bytes < b.m_bytes; }
    friend bool operator>(const Blob& a, const Blob& b) { return b < a; }
    friend bool operator<=(const Blob& a, const Blob& b) { return !(b < a); }
    friend bool operator>=(const Blob& a, const Blob& b) { return !(a < b); }
    friend Blob operator+(Blob a, const Blob& b) { return std::move(a.append(b)); }

private:
    Bytes m_bytes;
};

/// The bytes as characters.
std::string toText(const Blob& bytes);

} // namespace PKCS11
