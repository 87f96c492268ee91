// The choice of the card driver: the only file that names driver classes. A new family is one row.
#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/drivers/cardos/CardOSToken.h"
#include "pkcs11/drivers/edu/AcosEDUToken.h"
#include "pkcs11/drivers/ias/IASToken.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <algorithm>

namespace PKCS11 {

namespace {

template <class Driver>
std::unique_ptr<Token> build(PCSCSlot& slot)
{
    return std::make_unique<Driver>(&slot);
}

std::unique_ptr<Token> buildEDU(PCSCSlot& slot)
{
    return std::make_unique<AcosEDUToken>(&slot, slot.eduVariant());
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
    {kPIVCard, build<PIVJavaToken>},
    {kCardOSCard, build<CardOSToken>},
    {kATrustCard, build<AcosTRUSTToken>},
    {kEDUCard, buildEDU},
    {kIASCard, buildIAS},
};

std::unique_ptr<Token> buildDriver(PCSCSlot& slot, const Blob& cardType)
{
    if (auto token = Edition::current().createDriver(cardType, slot))
        return token;
    const auto* const family =
        std::find_if(std::begin(kFamilies), std::end(kFamilies),
                     [&](const Family& row) { return cardType == Blob(row.cardType); });
    return family != std::end(kFamilies) ? family->build(slot) : nullptr;
}

} // namespace

std::unique_ptr<Token> PCSCSlot::createToken()
{
    if (!isTokenPresent())
        return nullptr;
    try {
        return readToken();
    } catch (const PKCS11Exception& failure) {
        CloseChannel();
        if (failure.value() == CKR_DEVICE_ERROR)
            throw PKCS11Exception(CKR_TOKEN_NOT_RECOGNIZED, failure.what(), failure.where());
        return nullptr;
    } catch (...) { // no memory, which says nothing about the card
        CloseChannel();
        throw;
    }
}

std::unique_ptr<Token> PCSCSlot::readToken()
{
    const CardMark mark = cardMark();
    try {
        std::unique_ptr<Token> token = buildToken();
        if (isUndisturbedSince(mark))
            return token;
    } catch (const PKCS11Exception&) {
        if (isUndisturbedSince(mark))
            throw;
    }
    // The selections were lost on the way: objects would be missing for as long as the card stays in the
    // reader. It may even be another card.
    CloseChannel();
    const CardMark again = cardMark();
    std::unique_ptr<Token> token = buildToken();
    if (!isUndisturbedSince(again))
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    return token;
}

std::unique_ptr<Token> PCSCSlot::buildToken()
{
    Blob cardType;
    const std::string os = GetOS(GetATR(), cardType);
    Logger::Log(Logger::kTrace, os.c_str());
    Logger::Log(Logger::kTrace, "model", cardType);

    // A card that its ATR does not name as PIV can still hold the application.
    if (cardType != Blob(kPIVCard) && cardType != Blob(kPIVCACCard)) {
        CreateChannel();
        if (IsPIVToken())
            return buildDriver(*this, Blob(kPIVCard));
        CloseChannel();
    }
    return buildDriver(*this, cardType);
}

} // namespace PKCS11
