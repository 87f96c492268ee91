#include "util/CryptoUse.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Sleep.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <openssl/crypto.h>
#include <unistd.h>

namespace {

/// A signal handler may exit inside of a use, which then does not end. In milliseconds.
constexpr int kPatience = 1000;

/// The process in the upper half, its users in the lower one: those of a parent do not exist in the child of
/// a fork.
std::atomic<std::uint64_t> users{0};
std::atomic<bool> hasEnded{false}, isRegistered{false};

std::uint64_t thisProcess()
{
    return static_cast<std::uint64_t>(getpid()) << 32;
}

std::uint64_t usersHere(std::uint64_t all)
{
    const std::uint64_t process = thisProcess();
    return all >> 32 == process >> 32 ? all - process : 0;
}

void addUser(int count)
{
    std::uint64_t before = users;
    std::uint64_t now = 0;
    do
        now = thisProcess() + usersHere(before) + static_cast<std::uint64_t>(count);
    while (!users.compare_exchange_weak(before, now));
}

void end()
{
    hasEnded = true;
    for (int i = 0; i < kPatience && usersHere(users) > 0; ++i)
        PKCS11::Sleep(1);
}

/// libcrypto's own end is registered first, so that it comes after this one. Asked for nothing, libcrypto
/// does not start.
bool registerEnd()
{
    return OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr) == 1 && std::atexit(&end) == 0;
}

} // namespace

CryptoUse::CryptoUse()
{
    // No lock, which a signal handler or the child of a fork could find taken.
    if (!isRegistered.exchange(true) && !registerEnd())
        hasEnded = true;
    addUser(1);
    if (hasEnded) {
        addUser(-1);
        throw PKCS11::PKCS11Exception(CKR_CRYPTOKI_NOT_INITIALIZED);
    }
}

CryptoUse::~CryptoUse()
{
    addUser(-1);
}
