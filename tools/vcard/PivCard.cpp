#include "tools/vcard/PivCard.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

namespace vcard {

namespace {

constexpr char kApplicationId[] = "A000000308000010000100";
constexpr size_t kProviderId = 5;  ///< bytes of the registered provider identifier
constexpr size_t kShortestAid = 9; ///< without the version
constexpr unsigned char kPinReference = 0x80;
constexpr unsigned char kPukReference = 0x81;
constexpr std::ptrdiff_t kFewestDigits = 6;

/// Algorithm identifiers (SP 800-78-5, table 9), by the length of the modulus or of a coordinate in bytes.
struct AlgorithmOfSize {
    size_t size;
    unsigned char identifier;
};
constexpr AlgorithmOfSize kRsaAlgorithms[] = {{128, 0x06}, {256, 0x07}, {384, 0x05}, {512, 0x16}};
constexpr AlgorithmOfSize kEcAlgorithms[] = {{32, 0x11}, {48, 0x14}};

template <size_t N>
unsigned char algorithmOf(const AlgorithmOfSize (&algorithms)[N], size_t size)
{
    const auto* found =
        std::find_if(std::begin(algorithms), std::end(algorithms),
                     [size](const AlgorithmOfSize& algorithm) { return algorithm.size == size; });
    if (found == std::end(algorithms))
        throw std::invalid_argument("no key of a PIV card has this size");
    return found->identifier;
}

struct KeyPlace {
    unsigned char reference;
    unsigned char objectTag; // last byte of 5FC1xx
    const char* commonName;
    bool needsPin;
    bool needsPinEachTime;
};
constexpr std::array<KeyPlace, 4> kKeyPlaces = {{
    {0x9A, 0x05, "PIV Authentication", true, false},
    {0x9C, 0x0A, "Digital Signature", true, true},
    {0x9D, 0x0B, "Key Management", true, false},
    {0x9E, 0x01, "Card Authentication", false, false},
}};

const KeyPlace* placeOf(unsigned char reference)
{
    const auto* found =
        std::find_if(kKeyPlaces.begin(), kKeyPlaces.end(),
                     [reference](const KeyPlace& place) { return place.reference == reference; });
    return found == kKeyPlaces.end() ? nullptr : found;
}

Bytes head(const Bytes& bytes)
{
    return {bytes.begin(), bytes.begin() + kPinBlock};
}

Bytes tail(const Bytes& bytes)
{
    return {bytes.begin() + kPinBlock, bytes.end()};
}

Bytes certificateObject(const Bytes& certificate)
{
    return tlv(0x53, join({tlv(0x70, certificate), tlv(0x71, {0x00}), tlv(0xFE, {})}));
}

/// The challenge of a template 7C { 82 (empty: the answer is wanted), 81 challenge }, in either order.
std::optional<Bytes> challengeOf(const Bytes& data)
{
    const auto outer = parseTlvs(data);
    if (!outer || outer->size() != 1 || outer->front().tag != 0x7C)
        return std::nullopt;
    const auto inner = parseTlvs(outer->front().value);
    if (!inner || inner->size() != 2)
        return std::nullopt;
    const bool challengeFirst = inner->front().tag == 0x81;
    const Tlv& challenge = challengeFirst ? inner->front() : inner->back();
    const Tlv& response = challengeFirst ? inner->back() : inner->front();
    if (challenge.tag != 0x81 || response.tag != 0x82 || !response.value.empty())
        return std::nullopt;
    return challenge.value;
}

} // namespace

PivCard::PivCard(const PivOptions& options)
    : IsoCard(makeAtr(options.historicalBytes, options.t0)),
      m_pin(pinBlock(options.pin)),
      m_puk(pinBlock(options.puk)),
      m_verifiesPuk(options.verifiesPuk)
{
    for (const PivSlot& slot : options.slots) {
        const KeyPlace* place = placeOf(slot.reference);
        if (place == nullptr)
            continue;
        Key& key = m_keys[slot.reference];
        if (slot.rsaBits != 0) {
            key.rsa = &RsaKey::get(slot.rsaBits, slot.reference);
            key.algorithm = algorithmOf(kRsaAlgorithms, key.rsa->size());
            key.certificate = key.rsa->certificate(place->commonName);
        } else {
            key.ec = &EcKey::get(slot.curve, slot.reference);
            key.algorithm = algorithmOf(kEcAlgorithms, key.ec->size());
            key.certificate = key.ec->certificate(place->commonName);
        }
        putObject(place->objectTag, certificateObject(key.certificate));
    }
}

void PivCard::putObject(unsigned char lastTagByte, Bytes object)
{
    m_objects[lastTagByte] = std::move(object);
}

Bytes PivCard::certificate(unsigned char reference) const
{
    const auto key = m_keys.find(reference);
    return key == m_keys.end() ? Bytes{} : key->second.certificate;
}

void PivCard::onReset()
{
    m_selected = false;
    m_pinJustVerified = false;
    m_pin.forget();
    m_puk.forget();
}

Response PivCard::process(const Command& command)
{
    const bool pinJustVerified = std::exchange(m_pinJustVerified, false);
    if (command.cla != 0x00)
        return sw::claNotSupported;
    if (command.ins == 0xA4)
        return selectApplication(command);
    if (!m_selected)
        return sw::insNotSupported;
    switch (command.ins) {
    case 0xCB:
        return getData(command);
    case 0x20:
        return verify(command);
    case 0x24:
        return changeReferenceData(command);
    case 0x2C:
        return resetRetryCounter(command);
    case 0x87:
        return generalAuthenticate(command, pinJustVerified);
    default:
        return sw::insNotSupported;
    }
}

/// The full identifier, or without its version. Selecting what is selected keeps the security status, and so
/// does failing.
Response PivCard::selectApplication(const Command& command)
{
    if (command.p1p2() != 0x0400)
        return sw::wrongP1P2;
    const Bytes aid = fromHex(kApplicationId);
    if (command.data.size() < kShortestAid || command.data.size() > aid.size() ||
        !std::equal(command.data.begin(), command.data.end(), aid.begin())) {
        return sw::fileNotFound;
    }
    m_selected = true;
    const Bytes version = {aid.begin() + kProviderId, aid.end()};
    const Bytes authority = {aid.begin(), aid.begin() + kProviderId};
    return tlv(0x61, join({tlv(0x4F, version), tlv(0x79, tlv(0x4F, authority)),
                           tlv(0x50, fromText("Quarvel virtual PIV card"))}));
}

Response PivCard::getData(const Command& command) const
{
    if (command.p1p2() != 0x3FFF)
        return sw::wrongP1P2;
    const auto tagList = parseTlvs(command.data);
    if (!tagList || tagList->size() != 1 || tagList->front().tag != 0x5C)
        return sw::wrongData;
    const Bytes& tag = tagList->front().value;
    const auto object =
        tag.size() == 3 && tag[0] == 0x5F && tag[1] == 0xC1 ? m_objects.find(tag[2]) : m_objects.end();
    if (object == m_objects.end() || object->second.empty())
        return sw::fileNotFound;
    return object->second;
}

/// P1 FF gives up the verified state; no data asks for it.
Response PivCard::verify(const Command& command)
{
    const bool isPuk = m_verifiesPuk && command.p2 == kPukReference;
    if (command.p2 != kPinReference && !isPuk)
        return sw::referenceNotFound;
    Pin& pin = isPuk ? m_puk : m_pin;
    if (command.p1 == 0xFF && command.data.empty()) {
        pin.forget();
        return sw::ok;
    }
    if (command.p1 != 0x00)
        return sw::wrongP1P2;
    if (!command.data.empty() && command.data.size() != kPinBlock)
        return sw::wrongLength;
    if (!command.data.empty() && !pin.blocked() && !isPuk && !isPinBlock(command.data, kFewestDigits))
        return sw::wrongData;
    const unsigned short status = pin.verify(command.data);
    m_pinJustVerified = !isPuk && !command.data.empty() && status == sw::ok;
    return status;
}

Response PivCard::changeReferenceData(const Command& command)
{
    if (command.p1 != 0x00)
        return sw::wrongP1P2;
    if (command.p2 != kPinReference && command.p2 != kPukReference)
        return sw::referenceNotFound;
    if (command.data.size() != 2 * kPinBlock)
        return sw::wrongLength;
    Pin& pin = command.p2 == kPinReference ? m_pin : m_puk;
    if (!pin.blocked() && command.p2 == kPinReference &&
        !(isPinBlock(head(command.data), kFewestDigits) && isPinBlock(tail(command.data), kFewestDigits))) {
        return sw::wrongData;
    }
    return pin.change(head(command.data), tail(command.data));
}

Response PivCard::resetRetryCounter(const Command& command)
{
    if (command.p1 != 0x00)
        return sw::wrongP1P2;
    if (command.p2 != kPinReference)
        return sw::referenceNotFound;
    if (command.data.size() != 2 * kPinBlock)
        return sw::wrongLength;
    if (!m_puk.blocked() && !isPinBlock(tail(command.data), kFewestDigits))
        return sw::wrongData;
    const unsigned short status = m_puk.verify(head(command.data));
    if (status == sw::ok)
        m_pin.unblock(tail(command.data));
    return status;
}

Response PivCard::generalAuthenticate(const Command& command, bool pinJustVerified)
{
    const KeyPlace* place = placeOf(command.p2);
    const auto found = m_keys.find(command.p2);
    if (place == nullptr || found == m_keys.end())
        return sw::wrongP1P2;
    const Key& key = found->second;
    if (command.p1 != key.algorithm)
        return sw::wrongP1P2;
    if ((place->needsPin && !m_pin.verified()) || (place->needsPinEachTime && !pinJustVerified))
        return sw::securityStatusNotSatisfied;
    const std::optional<Bytes> challenge = challengeOf(command.data);
    if (!challenge || challenge->size() != key.size())
        return sw::wrongData;
    const Bytes result = key.ec != nullptr ? key.ec->sign(*challenge) : key.rsa->privateOperation(*challenge);
    return result.empty() ? Response(sw::wrongData) : tlv(0x7C, tlv(0x82, result));
}

} // namespace vcard
