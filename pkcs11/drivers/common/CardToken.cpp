#include "pkcs11/drivers/common/CardToken.h"

#include "pkcs11/Edition.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <algorithm>

namespace PKCS11 {

namespace {

/// No moment in the life of a card.
constexpr PCSCSlot::CardMark kNever = -1;

/// The text in a field of CK_TOKEN_INFO: filled up with blanks, cut to the field's width.
template <int Width>
void fill(CK_UTF8CHAR (&field)[Width], const Blob& text)
{
    std::fill_n(field, Width, ' ');
    std::copy_n(text.begin(), std::min(text.size(), Width), field);
}

[[noreturn]] void refuse()
{
    throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED);
}

bool isPinRefusal(const PKCS11Exception& failure)
{
    return failure.value() == CKR_PIN_INCORRECT || failure.value() == CKR_PIN_LOCKED;
}

} // namespace

CardToken::CardToken(PCSCSlot* slot)
    : Token(slot), m_selectedAt(slot != nullptr ? slot->selectionMark() : 0), m_pinShownAt(m_selectedAt)
{
}

CK_TOKEN_INFO CardToken::getInfo()
{
    m_tokenInfo.flags = getFlag();
    fill(m_tokenInfo.label, getLabel());
    fill(m_tokenInfo.manufacturerID, getID());
    fill(m_tokenInfo.model, getModel());
    fill(m_tokenInfo.serialNumber, getSerialNumber());
    return m_tokenInfo;
}

MechanismList* CardToken::getMechanismList()
{
    if (!m_mechanismsBuilt) {
        initMechanismList();
        m_mechanismsBuilt = true;
    }
    return &m_mechanisms;
}

std::unique_ptr<Object> CardToken::createPublicKey(CK_ATTRIBUTE* /*attributes*/, CK_ULONG /*count*/)
{
    return nullptr;
}

std::unique_ptr<Object> CardToken::createPrivateKey(CK_ATTRIBUTE* /*attributes*/, CK_ULONG /*count*/)
{
    return nullptr;
}

std::unique_ptr<Object> CardToken::createCertificate(CK_ATTRIBUTE* /*attributes*/, CK_ULONG /*count*/)
{
    return nullptr;
}

std::unique_ptr<Object> CardToken::createData(CK_ATTRIBUTE* /*attributes*/, CK_ULONG /*count*/)
{
    return nullptr;
}

std::unique_ptr<Object> CardToken::createSecretKey(CK_ATTRIBUTE* /*attributes*/, CK_ULONG /*count*/)
{
    return nullptr;
}

std::unique_ptr<Mechanism> CardToken::createMechanismDigest(CK_MECHANISM* /*mechanism*/)
{
    return nullptr;
}

std::unique_ptr<MechanismKeygen> CardToken::createMechanismGenerateKeyPair(CK_MECHANISM* /*mechanism*/)
{
    refuse();
}

std::unique_ptr<MechanismKeygen> CardToken::createMechanismGenerateKey(CK_MECHANISM* /*mechanism*/)
{
    refuse();
}

void CardToken::seedRandom(CK_BYTE* /*seed*/, CK_ULONG /*length*/)
{
    refuse();
}

void CardToken::generateRandom(CK_BYTE* /*random*/, CK_ULONG /*length*/)
{
    refuse();
}

void CardToken::InitPIN(const Blob& /*pin*/)
{
    refuse();
}

void CardToken::SetSOPIN(const Blob& /*oldPin*/, const Blob& /*newPin*/)
{
    refuse();
}

void CardToken::VerifySOPIN(const Blob& /*pin*/)
{
    refuse();
}

void CardToken::requireLogin(const char* where) const
{
    if (!isUserLoggedIn())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "", where);
}

void CardToken::replayUserPin()
{
    // A copy: a successful verification replaces the cached PIN.
    const Blob pin = userPin();
    if (pin.empty())
        return;
    m_verifyStatus = 0;
    try {
        VerifyPIN(pin);
    } catch (const PKCS11Exception& failure) {
        if (isPinRefused(m_verifyStatus)) {
            m_pinRefusal = failure.value();
            if (Edition::current().endsRefusedLogin())
                Logout();
        }
        throw;
    }
}

void CardToken::showUserPinAgain()
{
    if (m_pinRefusal != CKR_OK && !userPin().empty())
        throw PKCS11Exception(m_pinRefusal);
    replayUserPin();
}

void CardToken::showLostUserPin()
{
    card().enter();
    if (card().selectionMark() != m_pinShownAt)
        showUserPinAgain();
}

void CardToken::requireChannel()
{
    if (slot() == nullptr || !slot()->CreateChannel())
        throw PKCS11Exception(CKR_DEVICE_ERROR);
}

// --- Disturbances --------------------------------------------------------------------------------

void CardToken::noteSelection()
{
    m_selectedAt = card().selectionMark();
}

void CardToken::makeCurrent()
{
    const PCSCSlot::CardMark mark = card().cardMark();
    try {
        selectApplication();
    } catch (const PKCS11Exception&) {
        if (card().isUndisturbedSince(mark) || card().isCardExchanged())
            throw;
        selectApplication();
    }
}

void CardToken::requireApplication()
{
    card().enter();
    if (card().selectionMark() != m_selectedAt)
        makeCurrent();
}

void CardToken::runWhole(const std::function<void()>& work)
{
    for (const bool isLast : {false, true}) {
        const PCSCSlot::CardMark mark = card().cardMark();
        try {
            work();
            if (card().isUndisturbedSince(mark))
                return;
        } catch (const PKCS11Exception& failure) {
            const bool isReaders = failure.value() == CKR_GENERAL_ERROR;
            const bool isFinal =
                card().isUndisturbedSince(mark) || isPinRefusal(failure) || (isLast && isReaders);
            // What another card refuses says nothing about this one.
            if (card().isCardExchanged() ? isReaders : isFinal)
                throw;
        }
        if (card().isCardExchanged())
            throw PKCS11Exception(CKR_DEVICE_REMOVED);
    }
    throw PKCS11Exception(CKR_DEVICE_ERROR);
}

int CardToken::sendVerify(const Blob& header, const Blob& data)
{
    requireApplication();
    PCSCSlot::CardMark mark = card().cardMark();
    m_pinShownAt = kNever; // a refused PIN ends the verified state on the card
    int sw = card().Send(header, data);
    if (!card().isUndisturbedSince(mark) && !isPinRefused(sw)) {
        makeCurrent();
        mark = card().cardMark();
        sw = card().Send(header, data);
        if (!card().isUndisturbedSince(mark) && !isPinRefused(sw))
            throw PKCS11Exception(CKR_DEVICE_ERROR);
    }
    if (sw == SW_SUCCESS) {
        m_pinShownAt = card().selectionMark();
        m_pinRefusal = CKR_OK;
    }
    return m_verifyStatus = sw;
}

int CardToken::sendNewPin(const Blob& header, const Blob& data)
{
    const PCSCSlot::CardMark mark = card().cardMark();
    int sw = 0;
    try {
        sw = card().Send(header, data);
    } catch (...) {
        Logout();
        throw;
    }
    if (sw == SW_SUCCESS || card().isUndisturbedSince(mark))
        return sw;
    if (!isPinRefused(sw))
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    // The card may have taken the new PIN before the reset, and refuse the old one for that.
    Logout();
    return sw;
}

// --- For all drivers -----------------------------------------------------------------------------

void passReaderFailure(const PKCS11Exception& failure)
{
    if (failure.value() == CKR_GENERAL_ERROR)
        throw PKCS11Exception(failure);
}

void requireSuccess(int sw, const char* what, const char* where)
{
    if (sw != SW_SUCCESS)
        throw PKCS11Exception(CKR_DEVICE_ERROR, what, where);
}

void requirePinAccepted(int sw)
{
    if (sw == SW_SUCCESS)
        return;
    throw PKCS11Exception(sw == SW_PIN_BLOCKED ? CKR_PIN_LOCKED : CKR_PIN_INCORRECT);
}

Blob padPin(const Blob& pin, int width, unsigned char fill)
{
    if (pin.size() > width)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE);
    Blob padded = pin;
    padded.resize(width, fill);
    return padded;
}

void requirePlainPin(const Blob& pin)
{
    if (pin.empty() || pin.size() > kMaxShortData)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE);
}

} // namespace PKCS11
