#include "pkcs11/token/ByteReader.h"

#include "pkcs11/PKCS11Exception.h"

namespace PKCS11 {

Blob ByteReader::take(int count)
{
    const int first = m_position;
    skip(count);
    return m_bytes.slice(first, count);
}

void ByteReader::skip(int count)
{
    if (!has(count))
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    m_position += count;
}

} // namespace PKCS11
