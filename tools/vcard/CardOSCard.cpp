#include "tools/vcard/CardOSCard.h"

#include "tools/vcard/Bytes.h"

#include <algorithm>

namespace vcard {

namespace {

constexpr unsigned short kDriverDF = 0x2001;
constexpr unsigned short kKeyDF = 0x4B01;
constexpr size_t kDirectorySize = 480; ///< 80 entries of six bytes
/// Bytes of the longest modulus whose number fits into a record.
constexpr size_t kLongestInRecord = 248;
constexpr size_t kFewestCharacters = 4; ///< of a PIN
constexpr size_t kMostCharacters = 10;
constexpr unsigned char kPrivateKeyV43 = 0x01;
constexpr unsigned char kPrivateKeyV50 = 0x02;

// Attribute types of the records (PKCS#11).
constexpr unsigned kLabel = 0x03;
constexpr unsigned kKeyType = 0x100;
constexpr unsigned kIdentifier = 0x102;

Bytes attribute(unsigned type, const Bytes& value)
{
    return tlv(0x30, join({tlv(0x06, join({{0x00, 0x00}, twoBytes(type)})), tlv(0x04, value)}));
}

/// A SEQUENCE of OCTET STRINGs; the last holds the SET of attributes.
Bytes record(std::initializer_list<Bytes> fields, std::initializer_list<Bytes> attributes)
{
    Bytes content;
    for (const Bytes& field : fields)
        content = join({content, tlv(0x04, field)});
    return tlv(0x30, join({content, tlv(0x04, tlv(0x31, join(attributes)))}));
}

Bytes directoryEntry(unsigned char type, unsigned short attributes, unsigned short value)
{
    return join({{type, 0x00}, twoBytes(attributes), twoBytes(value)});
}

/// The content of an INTEGER.
Bytes withSign(const Bytes& number)
{
    return number.at(0) >= 0x80 ? join({{0x00}, number}) : number;
}

/// A number in a key file: a header of three bytes, then the number.
Bytes keyRecord(unsigned char tag, const Bytes& number)
{
    const Bytes content = withSign(number);
    return join({{tag}, twoBytes(static_cast<unsigned>(content.size())), content});
}

/// Elements of one tag and one length byte each, the length being what it says; none if they do not fit.
std::vector<Tlv> simpleTlvs(const Bytes& bytes)
{
    std::vector<Tlv> elements;
    for (size_t at = 0; at < bytes.size();) {
        if (bytes.size() - at < 2 || bytes.size() - at - 2 < bytes[at + 1])
            return {};
        const auto value = bytes.begin() + static_cast<std::ptrdiff_t>(at) + 2;
        elements.push_back({bytes[at], {value, value + bytes[at + 1]}});
        at += 2U + bytes[at + 1];
    }
    return elements;
}

} // namespace

CardOSCard::CardOSCard(const CardOSOptions& options)
    : IsoCard(makeAtr(fromHex(options.isV50 ? "C901" : "56346376"))),
      m_isV50(options.isV50),
      m_key(RsaKey::get(options.rsaBits != 0 ? options.rsaBits
                        : options.isV50      ? 2048
                                             : 1024)),
      m_certificate(m_key.certificate("CardOS Card Holder")),
      m_files(true), // a DF is found by its identifier on the way up too
      m_application(FileSystem::addDF(m_files.mf(), 0x5015, fromHex("D276000098C00000"))),
      m_driverDF(FileSystem::addDF(m_application, kDriverDF)),
      m_keyDF(FileSystem::addDF(m_driverDF, kKeyDF)),
      m_userPin(fromText(options.pin)),
      m_soPin(fromText(options.soPin))
{
    addFiles();
    onReset();
}

void CardOSCard::addFiles()
{
    const Bytes id = {0x45};
    const Bytes rsa = {0x00, 0x00, 0x00, 0x00};
    Bytes directory =
        join({directoryEntry(1, 0x0101, kKeyDF), directoryEntry(2, 0x0102, kKeyDF),
              directoryEntry(3, 0x0103, 0x0203), directoryEntry(0, 0, 0), directoryEntry(4, 0x0104, 0x0204)});
    directory.resize(kDirectorySize);
    FileSystem::addEF(m_driverDF, 0x0001, directory);
    FileSystem::addEF(m_driverDF, 0x0002,
                      record({fromText("CardOS Card"), fromText("0102030405060708"), {10}, {6}, {15}}, {}));
    FileSystem::addEF(m_driverDF, 0x0101,
                      record({{}, {}, {}}, {attribute(kLabel, fromText("Key Pair")),
                                            attribute(kIdentifier, id), attribute(kKeyType, rsa)}));
    // Older records name the object in their own fields.
    FileSystem::addEF(m_driverDF, 0x0102, record({fromText("Key Pair"), id, {}}, {}));
    FileSystem::addEF(
        m_driverDF, 0x0103,
        record({{}, {}, {}, {}}, {attribute(kLabel, fromText("Certificate")), attribute(kIdentifier, id)}));
    FileSystem::addEF(m_driverDF, 0x0104, record({fromText("Notes"), fromText("Quarvel")}, {}));
    FileSystem::addEF(m_driverDF, 0x0203, m_certificate);
    FileSystem::addEF(m_driverDF, 0x0204, Bytes(300, 0x2A));
    if (m_isV50)
        return;
    if (m_key.size() <= kLongestInRecord)
        FileSystem::addRecordEF(m_keyDF, 0x0001,
                                {keyRecord(0x81, m_key.modulus()), keyRecord(0x82, m_key.exponent())});
    else
        FileSystem::addEF(
            m_keyDF, 0x0001,
            tlv(0x7F49, join({tlv(0x02, withSign(m_key.modulus())), tlv(0x02, m_key.exponent())})));
}

File& CardOSCard::file(unsigned short id)
{
    return **std::find_if(m_driverDF.children.begin(), m_driverDF.children.end(),
                          [id](const auto& child) { return child->id == id; });
}

void CardOSCard::onReset()
{
    m_files.reset();
    m_userPin.forget();
    m_soPin.forget();
    m_environment = {};
    m_administration = false;
}

bool CardOSCard::isInside(const File& df) const
{
    const File* at = &m_files.currentDF();
    while (at != nullptr && at != &df)
        at = at->parent;
    return at != nullptr;
}

Response CardOSCard::process(const Command& command)
{
    if (command.cla == 0x80 && command.ins == 0x10 && command.p1p2() == 0 && !m_isV50) {
        m_administration = !m_administration;
        return sw::ok;
    }
    if (command.cla != 0x00)
        return sw::claNotSupported;
    switch (command.ins) {
    case 0x20:
    case 0x24:
        return verifyOrChange(command);
    case 0x22:
        return manageEnvironment(command);
    case 0x2A:
        if (m_administration)
            return sw::conditionsNotSatisfied;
        return command.p1p2() == 0x8086   ? decipher(command)
               : command.p1p2() == 0x8680 ? encipher(command)
                                          : Response(sw::wrongP1P2);
    case 0x47:
        return m_isV50 ? readPublicPart(command) : sw::insNotSupported;
    case 0xA4:
        return select(command);
    case 0xB0:
        return m_files.readBinary(command);
    case 0xB2:
        return m_files.readRecord(command);
    case 0xCA:
        return getData(command);
    case 0xDA:
        return m_isV50 ? sw::insNotSupported : putData(command);
    default:
        return sw::insNotSupported;
    }
}

Response CardOSCard::select(const Command& command)
{
    const File* before = &m_files.currentDF();
    Response response = m_files.selectCommand(command);
    if (&m_files.currentDF() != before)
        m_environment = {};
    if (!isInside(m_application)) {
        m_userPin.forget();
        m_soPin.forget();
    }
    return response;
}

Response CardOSCard::getData(const Command& command) const
{
    switch (command.p1p2()) {
    case 0x0182:
        return fromHex(m_isV50 ? "C901" : "C808");
    case 0x0188:
        return fromHex("E1090104");
    case 0x018A:
        return fromHex(m_isV50 ? "00012345" : "1F40");
    default:
        return sw::referenceNotFound;
    }
}

Response CardOSCard::verifyOrChange(const Command& command)
{
    const bool changes = command.ins == 0x24;
    if (command.p1 != (changes ? 0x01 : 0x00) || (command.p2 != 0x81 && command.p2 != 0x82))
        return sw::wrongP1P2;
    if (!isInside(m_application))
        return sw::referenceNotFound;
    Pin& pin = command.p2 == 0x81 ? m_userPin : m_soPin;
    if (!changes)
        return pin.verify(command.data);
    if (command.data.size() < kFewestCharacters || command.data.size() > kMostCharacters)
        return sw::wrongLength;
    if (command.p2 == 0x82 || !m_soPin.verified())
        return pin.changeVerified(command.data);
    // The administrator gives the user a new PIN, and all tries.
    pin.unblock(command.data);
    return sw::ok;
}

Response CardOSCard::readPublicPart(const Command& command) const
{
    if (command.p1p2() != 0x8300)
        return sw::wrongP1P2;
    const auto outer = parseTlvs(command.data);
    if (!outer || outer->size() != 1 || outer->front().tag != 0xB8 ||
        outer->front().value != join({tlv(0x84, {kPrivateKeyV50}), tlv(0x95, {0x80})}))
        return sw::wrongData;
    if (&m_files.currentDF() != &m_keyDF)
        return sw::referenceNotFound;
    return tlv(0x7F49, join({tlv(0x81, m_key.modulus()), tlv(0x82, m_key.exponent())}));
}

Response CardOSCard::manageEnvironment(const Command& command)
{
    if (command.p1p2() == 0x0340 && !m_isV50) {
        if (!command.data.empty())
            return sw::wrongLength;
        m_environment = {};
        m_environment.restored = true;
        return sw::ok;
    }
    // V4.3b changes a restored environment; V5.0 sets one.
    const bool known = m_isV50 ? command.p1 == 0x41 : command.p1 == 0xF1 || command.p1 == 0x01;
    if (!known || (command.p2 != 0xB6 && command.p2 != 0xB8))
        return sw::wrongP1P2;
    const auto elements = parseTlvs(command.data);
    const unsigned reference = m_isV50 ? 0x84 : 0x83;
    if (!elements || elements->size() != 1 || elements->front().tag != reference ||
        elements->front().value.size() != 1)
        return sw::wrongData;
    if (!m_isV50 && !m_environment.restored)
        return sw::conditionsNotSatisfied;
    m_environment = {m_environment.restored, command.p1, command.p2, elements->front().value.front()};
    return sw::ok;
}

Response CardOSCard::putData(const Command& command)
{
    if (command.p1p2() != 0x016E)
        return sw::wrongP1P2;
    if (!m_administration || !m_userPin.verified())
        return sw::securityStatusNotSatisfied;
    // 83 class and number of the key object, 85 its options, 86 its access conditions, 8F length and number.
    const auto elements = simpleTlvs(command.data);
    if (elements.size() != 4 || elements[0].tag != 0x83 || elements[0].value.size() != 2 ||
        elements[1].tag != 0x85 || elements[1].value.size() != 8 || elements[2].tag != 0x86 ||
        elements[2].value.size() != 8 || elements[3].tag != 0x8F)
        return sw::wrongData;
    const unsigned char objectClass = elements[0].value[0];
    const Bytes& object = elements[3].value;
    if ((objectClass != 0x20 && objectClass != 0x21) || object.empty() || object[0] != object.size() - 1)
        return sw::wrongData;
    StoredKey& key = m_store[elements[0].value[1]];
    (objectClass == 0x20 ? key.modulus : key.exponent).assign(object.begin() + 1, object.end());
    return sw::ok;
}

Response CardOSCard::decipher(const Command& command) const
{
    const unsigned char operations = m_isV50 ? 0x41 : 0xF1;
    const unsigned char key = m_isV50 ? kPrivateKeyV50 : kPrivateKeyV43;
    if (m_environment.operations != operations || m_environment.use != 0xB8)
        return sw::conditionsNotSatisfied;
    if (m_environment.key != key || &m_files.currentDF() != &m_keyDF)
        return sw::referenceNotFound;
    if (!m_userPin.verified())
        return sw::securityStatusNotSatisfied;
    if (command.data.size() != m_key.size() + 1)
        return sw::wrongLength;
    const Bytes result = command.data.front() == 0x00
                             ? m_key.privateOperation({command.data.begin() + 1, command.data.end()})
                             : Bytes();
    return result.empty() ? Response(sw::wrongData) : Response(result);
}

Response CardOSCard::encipher(const Command& command) const
{
    const unsigned char operations = m_isV50 ? 0x41 : 0x01;
    if (m_environment.operations != operations || m_environment.use != 0xB8)
        return sw::conditionsNotSatisfied;
    StoredKey key;
    if (m_isV50 && m_environment.key == kPrivateKeyV50 && &m_files.currentDF() == &m_keyDF)
        key = {m_key.modulus(), m_key.exponent()};
    else if (const auto stored = m_store.find(m_environment.key); stored != m_store.end())
        key = stored->second;
    if (key.modulus.empty() || key.exponent.empty())
        return sw::referenceNotFound;
    const Bytes result = RsaKey::publicOperation(key.modulus, key.exponent, command.data);
    return result.empty() ? Response(sw::wrongData) : Response(join({{0x00}, result}));
}

} // namespace vcard
