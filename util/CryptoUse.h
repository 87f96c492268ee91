#pragma once

/// Holds off the end of libcrypto while somebody uses it. When a process exits libcrypto ends before the
/// library does, and threads may be in calls then: the end waits for who holds one of these, which is never
/// for long, and nobody gets one afterwards.
class CryptoUse {
public:
    /// Throws CKR_CRYPTOKI_NOT_INITIALIZED (0x190) after libcrypto's end.
    CryptoUse();
    CryptoUse(const CryptoUse&) = delete;
    CryptoUse& operator=(const CryptoUse&) = delete;
    ~CryptoUse();
};
