/// What a call threw.
#pragma once

#include "pkcs11/PKCS11Exception.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <new>
#include <string>

/// CKR_OK when it returned.
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

/// "code|what|where" with the code in hexadecimal, or what memory that is missing says; empty when it
/// returned.
template <class Call>
std::string thrownBy(Call call)
{
    try {
        call();
        return "";
    } catch (const PKCS11::PKCS11Exception& ex) {
        char code[20];
        std::snprintf(code, sizeof code, "%lX", static_cast<unsigned long>(ex.value()));
        return std::string(code) + "|" + ex.what() + "|" + ex.where();
    } catch (const std::bad_alloc& ex) {
        return ex.what();
    }
}
