#include "pkcs11/desktop/DesktopPIVKeys.h"

#include "pkcs11/desktop/BlockSign.h"
#include "pkcs11/desktop/PIVECDSASign.h"
#include "pkcs11/drivers/piv/PIVJavaMechanisms.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr AttributeRow kPublicECRows[] = {
    readOnlyRow<&DesktopPIVPublicKey::getECParameters>(CKA_EC_PARAMS),
    readOnlyRow<&DesktopPIVPublicKey::getECPoint>(CKA_EC_POINT),
};

constexpr AttributeRow kPrivateECRows[] = {
    readOnlyRow<&DesktopPIVPrivateKey::getECParameters>(CKA_EC_PARAMS),
};

} // namespace

const AttributeTable DesktopPIVPublicKey::kECAttributes =
    attributeTableOf(kPublicECRows, &PIVJavaPublicKey::kAttributes);
const AttributeTable DesktopPIVPrivateKey::kECAttributes =
    attributeTableOf(kPrivateECRows, &PIVJavaPrivateKey::kAttributes);

DesktopPIVPublicKey::DesktopPIVPublicKey(PIVJavaToken& token, unsigned short word, PIVAlgorithm algorithm)
    : PIVJavaPublicKey(token, word), m_algorithm(std::move(algorithm))
{
}

const AttributeTable& DesktopPIVPublicKey::attributeTable() const
{
    return m_algorithm.ecParameters.empty() ? PIVJavaPublicKey::attributeTable() : kECAttributes;
}

DesktopPIVPrivateKey::DesktopPIVPrivateKey(PIVJavaToken& token, unsigned short word, PIVAlgorithm algorithm)
    : PIVJavaPrivateKey(token, word), m_algorithm(std::move(algorithm))
{
    if (!m_algorithm.ecParameters.empty())
        DesktopPIVPrivateKey::setDecrypt(CK_FALSE);
}

const AttributeTable& DesktopPIVPrivateKey::attributeTable() const
{
    return m_algorithm.ecParameters.empty() ? PIVJavaPrivateKey::attributeTable() : kECAttributes;
}

unsigned short DesktopPIVPrivateKey::word() const
{
    const unsigned short named = PIVJavaPrivateKey::word();
    return m_algorithm.identifier == 0
               ? named
               : static_cast<unsigned short>((named & 0xFF00) | m_algorithm.identifier);
}

std::unique_ptr<Mechanism> DesktopPIVPrivateKey::createSignMechanism(CK_MECHANISM* mechanism,
                                                                     MechanismInfo* info)
{
    if (getKeyType() == CKK_EC) {
        if (m_algorithm.fieldLength == 0)
            return nullptr;
        return std::make_unique<PIVECDSASign>(*this, m_algorithm.fieldLength);
    }
    auto operation = PIVJavaPrivateKey::createSignMechanism(mechanism, info);
    if (mechanism->mechanism == CKM_RSA_PKCS)
        return std::make_unique<PKCS1Sign>(std::move(operation), getModulus());
    if (mechanism->mechanism == CKM_RSA_X_509)
        return std::make_unique<RawSign>(std::move(operation), getModulus());
    return operation;
}

std::unique_ptr<Mechanism> DesktopPIVPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                        MechanismInfo* /*info*/)
{
    return std::make_unique<PIVJavaMechanismDecrypt>(*this, mechanism->mechanism,
                                                     std::max(kPIVReportedLength, getModulus().size()));
}

} // namespace PKCS11
