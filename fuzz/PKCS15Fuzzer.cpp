#include "pkcs11/drivers/ias/PKCS15BaseDF.h"
#include "pkcs11/drivers/ias/PKCS15ODF.h"
#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

#include <cstdlib>

using namespace PKCS11;

namespace {

/// What a record or directory keeps of the input must come back from its own encoding.
template <class Record>
void check(const Blob& in)
{
    try {
        Record record;
        record.Import(in);
        const Blob once = record.Export();
        Record again;
        again.Import(once);
        if (again.Export() != once)
            std::abort();
    } catch (const char*) {
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const Blob in(data, data + size);
    check<PKCS15TokenInfo>(in);
    check<PKCS15Path>(in);
    check<PKCS15CommonObjectAttributes>(in);
    check<PKCS15CommonKeyAttributes>(in);
    check<PKCS15PinAttributes>(in);
    check<PKCS15ODF>(in);
    check<PKCS15AuthODF>(in);
    check<PKCS15CertDF>(in);
    check<PKCS15PrKDF>(in);
    check<PKCS15DODF>(in);
    return 0;
}
