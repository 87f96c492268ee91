#pragma once

#include "pkcs11/Cryptoki.h"

namespace PKCS11 {

/// Static description of a mechanism that a token supports. Key sizes are in bits.
class MechanismInfo {
public:
    /// The maximum comes before the minimum, deliberately.
    MechanismInfo(CK_MECHANISM_TYPE type, CK_ULONG maxKeySize, CK_ULONG minKeySize, CK_FLAGS flags)
        : m_type(type), m_flags(flags), m_minKeySize(minKeySize), m_maxKeySize(maxKeySize)
    {
    }
    virtual ~MechanismInfo() = default;

    CK_MECHANISM_TYPE getType() const { return m_type; }
    CK_MECHANISM_INFO getInfo() const { return {m_minKeySize, m_maxKeySize, m_flags}; }

    bool isEncrypt() const { return has(CKF_ENCRYPT); }
    bool isDecrypt() const { return has(CKF_DECRYPT); }
    bool isSign() const { return has(CKF_SIGN); }
    bool isVerify() const { return has(CKF_VERIFY); }
    bool isVerifyRecover() const { return has(CKF_VERIFY_RECOVER); }
    bool isDerive() const { return has(CKF_DERIVE); }

    // These belong to the interface; nothing in the library calls them.
    bool isHW() const { return has(CKF_HW); }
    bool isDigest() const { return has(CKF_DIGEST); }
    bool isSignRecover() const { return has(CKF_SIGN_RECOVER); }
    bool isWrap() const { return has(CKF_WRAP); }
    bool isUnwrap() const { return has(CKF_UNWRAP); }

private:
    bool has(CK_FLAGS flag) const { return (m_flags & flag) != 0; }

    CK_MECHANISM_TYPE m_type;
    CK_FLAGS m_flags;
    CK_ULONG m_minKeySize;
    CK_ULONG m_maxKeySize;
};

} // namespace PKCS11
