/// Signatures whose block is built here, for keys that compute with a block as it is.
#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/token/Blob.h"

#include <memory>

struct evp_md_st;

namespace PKCS11 {

/// Gives the key's own operation a block of the key's length to sign.
class BlockSign : public Mechanism {
public:
    /// Throws CKR_DEVICE_ERROR (0x30) where the card gives no signature.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

protected:
    /// `raw` signs a block as long as the modulus without padding it.
    BlockSign(std::unique_ptr<Mechanism> raw, const Blob& modulus);

    /// The block of size() bytes. Throws CKR_DATA_LEN_RANGE (0x21) for data that it cannot be made of.
    virtual Blob block(const Blob& data) const = 0;
    /// Length of the key in bytes.
    int size() const { return m_modulus.size(); }
    /// Without leading zeros.
    const Blob& modulus() const { return m_modulus; }

private:
    std::unique_ptr<Mechanism> m_raw;
    Blob m_modulus;
};

/// CKM_RSA_X_509: shorter data get zeros in front.
class RawSign final : public BlockSign {
public:
    RawSign(std::unique_ptr<Mechanism> raw, const Blob& modulus) : BlockSign(std::move(raw), modulus) {}

private:
    Blob block(const Blob& data) const override;
};

/// CKM_RSA_PKCS (RFC 8017, 8.2.1) of data that leave room for eight bytes of filler.
class PKCS1Sign final : public BlockSign {
public:
    PKCS1Sign(std::unique_ptr<Mechanism> raw, const Blob& modulus) : BlockSign(std::move(raw), modulus) {}

private:
    Blob block(const Blob& data) const override;
};

/// CKM_RSA_PKCS_PSS (RFC 8017, 8.1.1) of a hash with SHA-1 to SHA-512; the mask may be made with another
/// hash.
class PSSSign final : public BlockSign {
public:
    /// Throws CKR_MECHANISM_PARAM_INVALID (0x71) for parameters that are none, name other hashes or ask for
    /// more salt than the key has room for.
    PSSSign(std::unique_ptr<Mechanism> raw, const Blob& modulus, const CK_MECHANISM& mechanism);

private:
    /// The data are the hash, of the length of the hash that the parameters name.
    Blob block(const Blob& hash) const override;

    const evp_md_st* m_hash = nullptr;
    const evp_md_st* m_maskHash = nullptr;
    int m_saltLength = 0;
};

} // namespace PKCS11
