#pragma once

#include "pkcs11/Cryptoki.h"

#include <stdexcept>
#include <string>

/// Failure of the certificate utilities. Stands outside the PKCS11 exceptions: whoever lets it pass makes the
/// Cryptoki call fail with CKR_FUNCTION_FAILED.
class VantorException : public std::runtime_error {
public:
    VantorException(const std::string& text, CK_RV code) : std::runtime_error(text), m_code(code) {}
    CK_RV GetCryptokiError() const noexcept { return m_code; }

private:
    CK_RV m_code;
};
