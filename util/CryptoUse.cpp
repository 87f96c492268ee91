#include "util/CryptoUse.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Sleep.h"

#include <atomic>
#include <cstdlib>
#include <openssl/crypto.h>
#include <unistd.h>

namespace {

/// A signal handler may exit inside of a use, which then does not end. In milliseconds.
constexpr int kPatience = 1000;

std::atomic<int> users{0};
std::atomic<bool> hasEnded{false};
/// Of the process that has registered the end. Its threads do not exist in the child of a fork.
pid_t process = 0;

void end()
{
    hasEnded = true;
    for (int i = 0; i < kPatience && users > 0 && process == getpid(); ++i)
        PKCS11::Sleep(1);
}

/// libcrypto's own end is registered first, so that it comes behind this one.
bool registerEnd()
{
    process = getpid();
    return OPENSSL_init_crypto(0, nullptr) == 1 && std::atexit(&end) == 0;
}

} // namespace

CryptoUse::CryptoUse()
{
    static const bool isRegistered = registerEnd();
    ++users;
    if (!isRegistered || hasEnded) {
        --users;
        throw PKCS11::PKCS11Exception(CKR_CRYPTOKI_NOT_INITIALIZED);
    }
}

CryptoUse::~CryptoUse()
{
    --users;
}
