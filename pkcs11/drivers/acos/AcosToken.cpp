#include "pkcs11/drivers/acos/AcosToken.h"

#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

AcosToken::AcosToken(PCSCSlot* slot) : CardToken(slot)
{
    requireChannel();
}

void AcosToken::changeUserPin(const char* header, const Blob& oldBlock, const Blob& newBlock,
                              const Blob& newPin)
{
    requireSuccess(sendNewPin(PKCS11_hex2blob(header), oldBlock + newBlock));
    cacheUserPin(newPin);
}

void AcosToken::select(const char* command)
{
    requireSuccess(card().SendCmd(PKCS11_hex2blob(command)));
}

} // namespace PKCS11
