#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/InfoRecords.h"

#include <cstdlib>

using namespace PKCS11;

namespace {

/// What a record keeps of the input must come back from its own encoding.
template <class Record>
bool comesBack(const Blob& in)
{
    const Blob once = Record(in).Export();
    return Record(once).Export() == once;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const Blob in(data, data + size);
    try {
        PKCS11Attrs attributes(in);
        attributes.SetAttrs(attributes.GetAttrs());
        if (!comesBack<TokenInfo>(in) || !comesBack<PrivateKeyInfo>(in) || !comesBack<PublicKeyInfo>(in) ||
            !comesBack<CertificateInfo>(in) || !comesBack<DataInfo>(in) || !comesBack<ContainerInfo>(in) ||
            !comesBack<BlockCipherKeyInfo>(in))
            std::abort();
        attributes.SetParam(CKA_LABEL, Blob("label"));
    } catch (const PKCS11Exception&) {
        return 0;
    }
    return 0;
}
