// What comes from cards, a kind of it (QUARVEL_KIND) in each program.
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/ias/PKCS15BaseDF.h"
#include "pkcs11/drivers/ias/PKCS15ODF.h"
#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"
#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/token/ASN1.h"
#include "pkcs11/token/Framing.h"
#include "pkcs11/token/InfoRecords.h"
#include "util/VantorException.h"
#include "util/VantorX509Certificate.h"

#include <cstdlib>
#include <map>
#include <optional>

using namespace PKCS11;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}
/// Nothing else may be thrown.
template <class Failure, class Action>
void mayThrow(Action action)
{
    try {
        action();
    } catch (const Failure&) {
        return;
    }
}

template <class Record>
Blob imported(const Blob& in)
{
    return Record(in).Export();
}
template <class Record>
Blob importedPKCS15(const Blob& in)
{
    Record record;
    record.Import(in);
    return record.Export();
}
Blob importedBER(const Blob& in)
{
    BERCoder node;
    node.import(in, 0);
    Blob out;
    node.Export(out);
    return out;
}
/// What is kept of the input must come back from its own encoding.
template <class Failure, Blob (*... Kinds)(const Blob&)>
void comeBack(const Blob& in)
{
    for (const auto& kind : {Kinds...}) {
        std::optional<Blob> once;
        mayThrow<Failure>([&] { once = kind(in); });
        require(!once || kind(*once) == *once);
    }
}

const std::multimap<std::string, void (*)(const Blob&)> kParsers = {
    {"ATR",
     [](const Blob& in) {
         const Blob historical = getHistoricalBytes(in);
         require(historical.size() <= 15 && (!historical.empty() || findATRTableRow(historical) == nullptr));
         findATRTableRow(in);
     }},
    {"Attributes",
     [](const Blob& in) {
         mayThrow<PKCS11Exception>([&] {
             PKCS11Attrs attributes(in);
             attributes.SetAttrs(attributes.GetAttrs());
             attributes.SetParam(CKA_LABEL, Blob("label"));
         });
     }},
    {"Attributes", comeBack<PKCS11Exception, imported<TokenInfo>, imported<ObjectInfo<2>>,
                            imported<ObjectInfo<3>>, imported<ObjectInfo<4>>, imported<ObjectInfo<6>>>},
    {"BER",
     [](const Blob& in) {
         std::vector<TagLen> list;
         MakeTagLen(in, list);
         MakeTLVCoded(in);
     }},
    {"BER", comeBack<PKCS11Exception, importedBER>},
    {"Certificate",
     [](const Blob& in) {
         Blob der = in;
         Blob modulus;
         Blob exponent;
         getPublicKey(der, modulus, exponent);
         mayThrow<VantorException>([&] {
             const VantorX509Certificate cert({CKA_VALUE, der.data(), static_cast<CK_ULONG>(der.size())});
             cert.isRootCert();
             cert.compare(cert);
         });
     }},
    {"PKCS15",
     comeBack<const char*, importedPKCS15<PKCS15TokenInfo>, importedPKCS15<PKCS15Path>,
              importedPKCS15<PKCS15CommonObjectAttributes>, importedPKCS15<PKCS15CommonKeyAttributes>,
              importedPKCS15<PKCS15PinAttributes>, importedPKCS15<PKCS15ODF>, importedPKCS15<PKCS15AuthODF>,
              importedPKCS15<PKCS15CertDF>, importedPKCS15<PKCS15PrKDF>, importedPKCS15<PKCS15DODF>>},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    for (const auto& [kind, parse] : kParsers)
        if (kind == QUARVEL_KIND)
            parse(Blob(data, data + size));
    return 0;
}
