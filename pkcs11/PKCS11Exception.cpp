#include "pkcs11/PKCS11Exception.h"

#include <utility>

namespace PKCS11 {

PKCS11Exception::PKCS11Exception(CK_RV value, std::string what, std::string where)
    : m_value(value), m_what(std::move(what)), m_where(std::move(where))
{
}

PKCS11Exception::~PKCS11Exception() = default;

const char* PKCS11Exception::what() const noexcept
{
    return m_what.c_str();
}

const char* PKCS11Exception::where() const noexcept
{
    return m_where.c_str();
}

CK_RV PKCS11Exception::value() const noexcept
{
    return m_value;
}

} // namespace PKCS11
