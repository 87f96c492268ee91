// libcrypto calls these functions deprecated. Those that it offers instead keep a state that must be given
// back to it, which a session that outlives it could not.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "pkcs11/desktop/HostDigest.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"

#include <openssl/sha.h>

namespace PKCS11 {

namespace {

template <class State>
struct Functions {
    int length;
    int (*init)(State*);
    int (*update)(State*, const void*, size_t);
    int (*final)(unsigned char*, State*);
};
constexpr Functions<SHA_CTX> kSha1{SHA_DIGEST_LENGTH, &SHA1_Init, &SHA1_Update, &SHA1_Final};
constexpr Functions<SHA256_CTX> kSha224{SHA224_DIGEST_LENGTH, &SHA224_Init, &SHA224_Update, &SHA224_Final};
constexpr Functions<SHA256_CTX> kSha256{SHA256_DIGEST_LENGTH, &SHA256_Init, &SHA256_Update, &SHA256_Final};
constexpr Functions<SHA512_CTX> kSha384{SHA384_DIGEST_LENGTH, &SHA384_Init, &SHA384_Update, &SHA384_Final};
constexpr Functions<SHA512_CTX> kSha512{SHA512_DIGEST_LENGTH, &SHA512_Init, &SHA512_Update, &SHA512_Final};

template <class State>
class HostDigest final : public Mechanism {
public:
    explicit HostDigest(const Functions<State>& functions) : m_functions(functions) {}
    ~HostDigest() override { cleanse(&m_state, sizeof m_state); } // the caller's data
    HostDigest(const HostDigest&) = delete;
    HostDigest& operator=(const HostDigest&) = delete;

    void digestInit() override { m_functions.init(&m_state); }

    /// Throws CKR_OPERATION_ACTIVE (0x90) where parts wait for their final step.
    void digest(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override
    {
        if (m_inParts)
            throw PKCS11Exception(CKR_OPERATION_ACTIVE, "", "HostDigest::digest");
        if (answersLength(out, outLen, m_functions.length))
            return;
        requireRoom(outLen, m_functions.length);
        m_functions.update(&m_state, data, dataLen);
        digestFinal(out, outLen);
    }

    void digestUpdate(CK_BYTE* data, CK_ULONG dataLen) override
    {
        m_functions.update(&m_state, data, dataLen);
        m_inParts = true;
    }

    void digestFinal(CK_BYTE* out, CK_ULONG* outLen) override
    {
        if (answersLength(out, outLen, m_functions.length))
            return;
        requireRoom(outLen, m_functions.length);
        m_functions.final(out, &m_state);
        *outLen = static_cast<CK_ULONG>(m_functions.length);
    }

private:
    const Functions<State>& m_functions;
    State m_state{};
    bool m_inParts = false;
};

template <class State, const Functions<State>& functions>
std::unique_ptr<Mechanism> create()
{
    return std::make_unique<HostDigest<State>>(functions);
}

struct Row {
    CK_MECHANISM_TYPE type;
    std::unique_ptr<Mechanism> (*create)();
};
constexpr Row kRows[] = {
    {CKM_SHA_1, &create<SHA_CTX, kSha1>},       {CKM_SHA224, &create<SHA256_CTX, kSha224>},
    {CKM_SHA256, &create<SHA256_CTX, kSha256>}, {CKM_SHA384, &create<SHA512_CTX, kSha384>},
    {CKM_SHA512, &create<SHA512_CTX, kSha512>},
};

} // namespace

std::unique_ptr<Mechanism> createHostDigest(CK_MECHANISM_TYPE type)
{
    for (const Row& row : kRows)
        if (row.type == type)
            return row.create();
    throw PKCS11Exception(CKR_MECHANISM_INVALID, "", "createHostDigest");
}

void addHostDigests(MechanismList& mechanisms)
{
    for (const Row& row : kRows)
        mechanisms.add({row.type, 0, 0, CKF_DIGEST});
}

} // namespace PKCS11
