/// Bytes as hexadecimal text, for the tests of this folder.
#pragma once

#include "pkcs11/token/Hex.h"
#include "tests/support/Failure.h"

[[maybe_unused]] static PKCS11::Blob hex(const std::string& text)
{
    return PKCS11::PKCS11_hex2blob(text.c_str());
}
