/// Tables of constants and their names, for the name tables of the trace only.
#pragma once

#include <cstddef>

namespace PKCS11 {

struct Name {
    unsigned long number;
    const char* text;
};

/// The row of a constant whose text is its own name.
#define PKCS11_NAMED(constant)                                                                               \
    {                                                                                                        \
        constant, #constant                                                                                  \
    }

/// The first row's text, or null.
template <std::size_t N>
const char* findName(const Name (&names)[N], unsigned long number) noexcept
{
    for (const Name& name : names) {
        if (name.number == number)
            return name.text;
    }
    return nullptr;
}

} // namespace PKCS11
