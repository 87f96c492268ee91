#pragma once

#include "pkcs11/Cryptoki.h"

#include <exception>
#include <string>

namespace PKCS11 {

/// The one exception type of the layers below the front end: the CK_RV that the Cryptoki call returns, and
/// two texts that only the trace shows.
class PKCS11Exception : public std::exception {
public:
    explicit PKCS11Exception(CK_RV value, std::string what = {}, std::string where = {});
    PKCS11Exception(const PKCS11Exception&) = default;
    PKCS11Exception& operator=(const PKCS11Exception&) = default;
    ~PKCS11Exception() override;

    /// What went wrong; empty for many failures.
    const char* what() const noexcept override;
    /// The method that failed, as "Class::method". Some texts name another method than the throwing one.
    virtual const char* where() const noexcept;
    /// The CKR_ code.
    virtual CK_RV value() const noexcept;

private:
    CK_RV m_value;
    std::string m_what;
    std::string m_where;
};

} // namespace PKCS11
