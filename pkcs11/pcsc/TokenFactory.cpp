// The choice of the card driver: the only file that names driver classes. A new family is one row.
#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/drivers/cardos/CardOSToken.h"
#include "pkcs11/drivers/edu/AcosEDUToken.h"
#include "pkcs11/drivers/ias/IASToken.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <algorithm>

namespace PKCS11 {
namespace {

/// A card that was reset while its driver read it has lost the selections, and objects would be missing for
/// as long as it stays in the reader: it is read once more.
template <class Construct>
std::unique_ptr<Token> readWhole(PCSCSlot& slot, Construct construct)
{
    const int resets = slot.resetCount();
    {
        std::unique_ptr<Token> token = construct();
        if (slot.resetCount() == resets)
            return token;
    } // the first token's end closes the channel
    return construct();
}

template <class Driver>
std::unique_ptr<Token> build(PCSCSlot& slot)
{
    return readWhole(slot, [&] { return std::make_unique<Driver>(&slot); });
}

std::unique_ptr<Token> buildEDU(PCSCSlot& slot)
{
    return readWhole(slot, [&] { return std::make_unique<AcosEDUToken>(&slot, slot.eduVariant()); });
}

/// The driver needs the application that the probe finds.
std::unique_ptr<Token> buildIAS(PCSCSlot& slot)
{
    if (!slot.CreateChannel())
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    const bool found = slot.CheckIAS();
    slot.CloseChannel();
    if (!found)
        return nullptr;
    return build<IASToken>(slot);
}

struct Family {
    const char* cardType;
    std::unique_ptr<Token> (*build)(PCSCSlot& slot);
};
/// Families without a row (PIV_CAC_CARD, ACTIV_IDENTITY_CARD) have no driver of their own.
constexpr Family kFamilies[] = {
    {"PIV_CARD", build<PIVJavaToken>},
    {"CARDOS_CARD", build<CardOSToken>},
    {"A-TRUST_CARD", build<AcosTRUSTToken>},
    {"EDU_CARD", buildEDU},
    {"IAS_CARD", buildIAS},
};

} // namespace

std::unique_ptr<Token> PCSCSlot::createToken()
{
    if (!isTokenPresent())
        return nullptr;
    try {
        return buildToken();
    } catch (const PKCS11Exception& ex) {
        CloseChannel();
        if (ex.value() == CKR_DEVICE_ERROR)
            throw PKCS11Exception(CKR_TOKEN_NOT_RECOGNIZED, ex.what(), ex.where());
        return nullptr;
    }
}

std::unique_ptr<Token> PCSCSlot::buildToken()
{
    Blob cardType;
    const std::string os = GetOS(GetATR(), cardType);
    Logger::Log(Logger::kTrace, os.c_str());
    Logger::Log(Logger::kTrace, "model", cardType);

    // A card that its ATR does not name as PIV can still hold the application.
    if (cardType != Blob("PIV_CARD") && cardType != Blob("PIV_CAC_CARD")) {
        CreateChannel();
        if (IsPIVToken())
            return build<PIVJavaToken>(*this);
        CloseChannel();
    }
    if (auto token = Edition::current().createDriver(cardType, *this))
        return token;
    const auto* const family =
        std::find_if(std::begin(kFamilies), std::end(kFamilies),
                     [&](const Family& row) { return cardType == Blob(row.cardType); });
    return family != std::end(kFamilies) ? family->build(*this) : nullptr;
}

} // namespace PKCS11
