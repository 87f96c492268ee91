#include "pkcs11/Edition.h"

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/pcsc/SlotList.h"
#include "pkcs11/token/Token.h"

namespace PKCS11 {

Edition Edition::s_product;
Edition* Edition::s_current = &Edition::s_product;

PCSCSystem* Edition::createSystem()
{
    return CreatePCSCSystem(nullptr);
}

std::unique_ptr<SlotList> Edition::createSlotList(PKCS11Wrapper* /*wrapper*/, PCSCSystem* /*system*/)
{
    return std::make_unique<SlotList>();
}

bool Edition::enterCard(PCSCSlot& /*slot*/)
{
    return false;
}

std::unique_ptr<Token> Edition::createDriver(const Blob& /*cardType*/, PCSCSlot& /*slot*/)
{
    return nullptr;
}

std::unique_ptr<Mechanism> Edition::createSignMechanism(PrivateKey& key, CK_MECHANISM* mechanism,
                                                        MechanismInfo* info)
{
    return key.createSignMechanism(mechanism, info);
}

} // namespace PKCS11
