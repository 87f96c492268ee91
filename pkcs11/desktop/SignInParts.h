#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/token/Blob.h"

#include <memory>

namespace PKCS11 {

/// Signing in parts with an operation that signs in one call only: the parts are collected, and the final
/// step signs them. Length queries and the room for the signature are the operation's business.
class SignInParts final : public Mechanism {
public:
    explicit SignInParts(std::unique_ptr<Mechanism> operation) : m_operation(std::move(operation)) {}

    /// Throws CKR_OPERATION_ACTIVE (0x90) where parts wait for their final step.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    /// Throws CKR_DATA_LEN_RANGE (0x21) for more than 64 KiB in all, and keeps what was collected before.
    void signUpdate(CK_BYTE* data, CK_ULONG dataLen) override;
    void signFinal(CK_BYTE* out, CK_ULONG* outLen) override;

private:
    std::unique_ptr<Mechanism> m_operation;
    Blob m_parts;
    bool m_inParts = false;
};

} // namespace PKCS11
