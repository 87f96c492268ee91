/// Bytes as hexadecimal text, and the code of a failure, for the tests of this folder.
#pragma once

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Hex.h"

#include <gtest/gtest.h>

[[maybe_unused]] static PKCS11::Blob hex(const std::string& text)
{
    return PKCS11::PKCS11_hex2blob(text.c_str());
}

template <class Call>
CK_RV codeOf(Call call)
{
    try {
        call();
    } catch (const PKCS11::PKCS11Exception& e) {
        return e.value();
    }
    return CKR_OK;
}
