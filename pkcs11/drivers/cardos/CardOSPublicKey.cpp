#include "pkcs11/drivers/cardos/CardOSPublicKey.h"

#include "pkcs11/drivers/cardos/CardOSMechanisms.h"

namespace PKCS11 {

CardOSPublicKey::CardOSPublicKey(CardOSToken& token, int index)
    : CardOSKey(token, index, PublicKeyInfo(token.readAttributeFile(index)))
{
}

std::unique_ptr<Mechanism> CardOSPublicKey::createVerifyMechanism(CK_MECHANISM* mechanism,
                                                                  MechanismInfo* /*info*/)
{
    return std::make_unique<CardOSMechanismVerify>(*this, mechanism->mechanism);
}

std::unique_ptr<Mechanism> CardOSPublicKey::createEncryptMechanism(CK_MECHANISM* mechanism,
                                                                   MechanismInfo* /*info*/)
{
    return std::make_unique<CardOSMechanismEncrypt>(*this, mechanism->mechanism);
}

} // namespace PKCS11
