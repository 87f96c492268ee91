#pragma once

#include <memory>

template <auto Free>
struct CryptoDeleter {
    template <class Object>
    void operator()(Object* object) const noexcept
    {
        Free(object);
    }
};

/// Owns an object of libcrypto that the function frees.
template <class Object, auto Free>
using CryptoPointer = std::unique_ptr<Object, CryptoDeleter<Free>>;
