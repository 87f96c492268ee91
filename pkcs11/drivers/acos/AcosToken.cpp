#include "pkcs11/drivers/acos/AcosToken.h"

#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

Blob acosPublicExponent()
{
    return PKCS11_hex2blob("010001");
}

AcosToken::AcosToken(PCSCSlot* slot) : CardToken(slot)
{
    requireChannel();
}

CK_TOKEN_INFO AcosToken::getInfo()
{
    if (!m_infoFilled) {
        readInfo();
        CardToken::getInfo();
        m_infoFilled = true;
    }
    return m_tokenInfo;
}

void AcosToken::SetPIN(const Blob& oldPin, const Blob& newPin)
{
    const Blob oldBlock = pinBlock(oldPin);
    const Blob newBlock = pinBlock(newPin);
    VerifyPIN(oldPin);
    requireSuccess(sendNewPin(PKCS11_hex2blob(changeHeader()), oldBlock + newBlock));
    cacheUserPin(newPin);
}

void AcosToken::select(const char* command)
{
    requireSuccess(card().SendCmd(PKCS11_hex2blob(command)));
}

} // namespace PKCS11
