#include "pkcs11/drivers/cardos/CardOSData.h"

#include "pkcs11/drivers/cardos/CardOSToken.h"

namespace PKCS11 {

namespace {

/// Field of the record that names the application where the attribute set does not.
constexpr int kApplicationField = 1;

} // namespace

CardOSData::CardOSData(CardOSToken& token, int index) : m_token(token), m_index(index)
{
    const DataInfo info(token.readAttributeFile(index));
    Blob application;
    info.GetParam(CKA_APPLICATION, application);
    CardOSData::setLabel(info.getLabel());
    CardOSData::setApplication(application.empty() ? info.field(kApplicationField) : application);
}

Blob CardOSData::readValue()
{
    return m_token.readValueFile(m_index);
}

} // namespace PKCS11
