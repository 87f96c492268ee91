#include "pkcs11/token/Blob.h"

#include "pkcs11/PKCS11Exception.h"

#include <openssl/crypto.h>

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr CK_ULONG kMaxCallerBytes = 16UL * 1024 * 1024;

std::size_t checkedCount(int count)
{
    if (count < 0)
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    return static_cast<std::size_t>(count);
}

} // namespace

void cleanse(void* memory, std::size_t length) noexcept
{
    OPENSSL_cleanse(memory, length);
}

Blob::Blob(int count, unsigned char fill) : m_bytes(checkedCount(count), fill) {}

Blob::Blob(const char* text) : Blob(std::string(text)) {}

Blob::Blob(const std::string& text) : m_bytes(text.begin(), text.end()) {}

Blob Blob::fromMemory(const void* memory, CK_ULONG length)
{
    if (length == 0)
        return {};
    if (memory == nullptr)
        throw PKCS11Exception(CKR_ARGUMENTS_BAD);
    if (length > kMaxCallerBytes)
        throw PKCS11Exception(CKR_HOST_MEMORY);
    const auto* bytes = static_cast<const unsigned char*>(memory);
    return {bytes, bytes + length};
}

unsigned char& Blob::at(int index)
{
    if (index < 0 || index >= size())
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    return m_bytes[static_cast<std::size_t>(index)];
}

const unsigned char& Blob::at(int index) const
{
    if (index < 0 || index >= size())
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    return m_bytes[static_cast<std::size_t>(index)];
}

void Blob::insert(const_iterator position, int count, unsigned char byte)
{
    m_bytes.insert(position, checkedCount(count), byte);
}

void Blob::assign(int count, unsigned char fill)
{
    m_bytes.assign(checkedCount(count), fill);
}

void Blob::resize(int count, unsigned char fill)
{
    m_bytes.resize(checkedCount(count), fill);
}

void Blob::reserve(int count)
{
    m_bytes.reserve(checkedCount(count));
}

Blob& Blob::append(const Blob& other)
{
    if (&other == this)
        return append(Blob(other));
    m_bytes.insert(m_bytes.end(), other.begin(), other.end());
    return *this;
}

Blob Blob::slice(int first, int count) const
{
    const int begin = std::clamp(first, 0, size());
    const int length = std::clamp(count, 0, size() - begin);
    return {m_bytes.begin() + begin, m_bytes.begin() + begin + length};
}

void Blob::wipe() noexcept
{
    // The bytes between size and capacity may still hold what an earlier erase or clear left; giving the
    // memory back wipes all of it.
    Bytes().swap(m_bytes);
}

std::string toText(const Blob& bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace PKCS11
