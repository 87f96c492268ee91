#include "pkcs11/drivers/cardos/CardOSData.h"

#include "pkcs11/drivers/cardos/CardOSToken.h"

namespace PKCS11 {

CardOSData::CardOSData(CardOSToken& token, int index) : m_token(token), m_index(index)
{
    const DataInfo info(token.readAttributeFile(index));
    CardOSData::setLabel(info.getLabel());
    CardOSData::setApplication(info.getApplication());
}

CardValue CardOSData::readValue()
{
    return m_token.readValueFile(m_index);
}

} // namespace PKCS11
