#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr char kCodingError[] = "PKCS15CommonObjectAttributes::Import: coding error";

constexpr PKCS15Element kElements[] = {{0x0C}, {0x03}, {0x04}, {0x02}};
constexpr PKCS15Layout kLayout = pkcs15Layout(kElements, PKCS15Layout::Others::Refuse, nullptr, kCodingError);

} // namespace

PKCS15CommonObjectAttributes::PKCS15CommonObjectAttributes() : PKCS15CommonObjectAttributes(kCodingError) {}

PKCS15CommonObjectAttributes::PKCS15CommonObjectAttributes(const char* undecodable)
    : PKCS15Sequence(kLayout, undecodable)
{
}

void PKCS15CommonObjectAttributes::readCommon(const BERCoder& record, std::initializer_list<int> types,
                                              const char* unknownType)
{
    m_objectType = record.getTag().front();
    if (std::find(types.begin(), types.end(), m_objectType) == types.end())
        throw unknownType;
    const BERCoder* common = componentOf(record, 0);
    PKCS15CommonObjectAttributes::read(common != nullptr ? *common : BERCoder(0x30));
}

void PKCS15CommonObjectAttributes::writeCommon(BERCoder& record) const
{
    if (!hasTag(record, m_objectType))
        record.setTag(m_objectType);
    const BERCoder* old = componentOf(record, 0);
    BERCoder common = old != nullptr ? *old : BERCoder(0x30);
    PKCS15CommonObjectAttributes::write(common);
    putComponent(record, 0, common);
}

} // namespace PKCS11
