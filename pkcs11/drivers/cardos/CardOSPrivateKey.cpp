#include "pkcs11/drivers/cardos/CardOSPrivateKey.h"

#include "pkcs11/drivers/cardos/CardOSMechanisms.h"

namespace PKCS11 {

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
