#include "pkcs11/drivers/cardos/CardOSPrivateKey.h"

#include "pkcs11/drivers/cardos/CardOSMechanisms.h"

namespace PKCS11 {

namespace {

using Key = CardOSPrivateKey;

constexpr AttributeRow kRows[] = {
    attributeRow<&Key::getPrime1, &Key::setPrime1>(CKA_PRIME_1),
    attributeRow<&Key::getPrime2, &Key::setPrime2>(CKA_PRIME_2),
    attributeRow<&Key::getPrivateExponent, &Key::setPrivateExponent>(CKA_PRIVATE_EXPONENT),
};

} // namespace

const AttributeTable CardOSPrivateKey::kAttributes = attributeTableOf(kRows, &CardPrivateKey::kAttributes);

CardOSPrivateKey::CardOSPrivateKey(CardOSToken& token, int index)
    : CardOSKey(token, index, PrivateKeyInfo(token.readAttributeFile(index)))
{
}

std::unique_ptr<Mechanism> CardOSPrivateKey::createSignMechanism(CK_MECHANISM* mechanism,
                                                                 MechanismInfo* /*info*/)
{
    return std::make_unique<CardOSMechanismSign>(*this, mechanism->mechanism);
}

std::unique_ptr<Mechanism> CardOSPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                    MechanismInfo* /*info*/)
{
    return std::make_unique<CardOSMechanismDecrypt>(*this, mechanism->mechanism);
}

} // namespace PKCS11
