#include "tests/support/ScarceMemory.h"

#include <cstdlib>
#include <execinfo.h>
#include <new>
#include <numeric>
#include <openssl/crypto.h>

namespace {

bool isEnd()
{
    if (scarce::places != nullptr) {
        std::vector<std::size_t>& places = *scarce::places;
        const scarce::Plenty plenty;
        void* callers[64];
        const int depth = backtrace(callers, 64);
        places.push_back(
            std::accumulate(callers, callers + depth, std::size_t(0), [](auto sum, void* caller) {
                return sum * 31 + reinterpret_cast<std::size_t>(caller);
            }));
    }
    return scarce::left > 0 && --scarce::left == 0;
}

/// libcrypto takes them only before its first allocation.
const int isInstalled = CRYPTO_set_mem_functions(
    [](std::size_t size, const char*, int) { return isEnd() ? nullptr : std::malloc(size); },
    [](void* old, std::size_t size, const char*, int) { return isEnd() ? nullptr : std::realloc(old, size); },
    [](void* memory, const char*, int) { std::free(memory); });
const bool isChecked = isInstalled == 1 || (std::abort(), false);

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = isEnd() ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
