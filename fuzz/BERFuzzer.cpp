#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/Framing.h"

#include <cstdlib>

using namespace PKCS11;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const Blob in(data, data + size);
    std::vector<TagLen> list;
    MakeTagLen(in, list);
    MakeTLVCoded(in);
    BERCoder node;
    try {
        node.import(in, 0);
    } catch (const PKCS11Exception&) {
        return 0;
    }
    Blob once;
    Blob twice;
    node.Export(once);
    if (node.import(once, 0) != once.size())
        std::abort();
    node.Export(twice);
    if (once != twice)
        std::abort();
    return 0;
}
