#include "tools/vcard/AcosCard.h"

#include "tools/vcard/Bytes.h"

#include <openssl/rand.h>

#include <algorithm>

namespace vcard {

namespace {

/// PKCS#1 type 2.
Bytes padForEncryption(const Bytes& data, size_t size)
{
    Bytes block(size - data.size());
    RAND_bytes(block.data(), static_cast<int>(block.size()));
    std::replace(block.begin(), block.end(), static_cast<unsigned char>(0x00),
                 static_cast<unsigned char>(0x5A));
    block.front() = 0x00;
    block.at(1) = 0x02;
    block.back() = 0x00;
    block.insert(block.end(), data.begin(), data.end());
    return block;
}

/// The digits packed two a byte, F for what is missing of a pair, FF after them.
Bytes packDigits(const std::string& pin)
{
    Bytes block(kPinBlock, 0xFF);
    const Bytes packed = fromHex(pin.size() % 2 == 0 ? pin : pin + "F");
    std::copy_n(packed.begin(), std::min(packed.size(), kPinBlock), block.begin());
    return block;
}

} // namespace

void AcosCard::addPin(unsigned char reference, unsigned char p1, Bytes block)
{
    m_pins.emplace(reference, PinEntry{p1, Pin(std::move(block))});
}

void AcosCard::addKey(unsigned char reference, const RsaKey& key, unsigned char pin)
{
    m_keys.emplace(reference, KeyEntry{&key, pin});
}

void AcosCard::onReset()
{
    m_files.reset();
    m_environment.reset();
    forgetPins();
}

void AcosCard::forgetPins()
{
    for (auto& [reference, entry] : m_pins)
        entry.pin.forget();
}

Response AcosCard::process(const Command& command)
{
    if (command.cla != 0x00 && !(command.cla == m_changeClass && command.ins == 0x24))
        return sw::claNotSupported;
    switch (command.ins) {
    case 0x20:
        return verify(command);
    case 0x22:
        return setEnvironment(command);
    case 0x24:
        return change(command);
    case 0x2A:
        if (command.p1p2() == 0x8086)
            return decipher(command);
        return command.p1p2() == 0x8680 && m_hasPublicOperation ? encipher(command) : Response(sw::wrongP1P2);
    case 0x88:
        return internalAuthenticate(command);
    case 0xA4:
        return select(command);
    case 0xB0:
        return m_files.readBinary(command);
    default:
        return sw::insNotSupported;
    }
}

Response AcosCard::select(const Command& command)
{
    m_environment.reset();
    Response response = m_files.selectCommand(command);
    if (!isInApplication())
        forgetPins();
    return response;
}

Response AcosCard::verify(const Command& command)
{
    const auto found = m_pins.find(command.p2);
    if (found == m_pins.end())
        return sw::referenceNotFound;
    if (command.p1 != found->second.p1)
        return sw::wrongP1P2;
    if (!isInApplication())
        return sw::conditionsNotSatisfied;
    if (!command.data.empty() && command.data.size() != kPinBlock)
        return sw::wrongLength;
    return found->second.pin.verify(command.data);
}

Response AcosCard::change(const Command& command)
{
    const auto found = m_pins.find(command.p2);
    if (found == m_pins.end())
        return sw::referenceNotFound;
    if (command.cla != m_changeClass)
        return sw::claNotSupported;
    if (command.p1 != found->second.p1)
        return sw::wrongP1P2;
    if (!isInApplication())
        return sw::conditionsNotSatisfied;
    if (command.data.size() != 2 * kPinBlock)
        return sw::wrongLength;
    const auto middle = command.data.begin() + kPinBlock;
    const Bytes fresh(middle, command.data.end());
    if (!isNewPin(fresh))
        return sw::wrongData;
    return found->second.pin.change(Bytes(command.data.begin(), middle), fresh);
}

Response AcosCard::setEnvironment(const Command& command)
{
    m_environment.reset();
    const bool authentication = command.p1p2() == 0x41A4;
    if (!authentication && command.p1p2() != 0x81B8)
        return sw::wrongP1P2;
    const auto elements = parseTlvs(command.data);
    if (!elements)
        return sw::wrongData;
    Environment environment{command.p2, 0, false};
    bool algorithm = !authentication; // needed for authentication only
    for (const Tlv& element : *elements) {
        if (element.value.size() != 1)
            return sw::wrongData;
        if (element.tag == 0x84 || element.tag == 0x83) {
            environment.reference = element.value.front();
            environment.isPrivate = element.tag == 0x84;
        } else if (element.tag == 0x80 && element.value.front() == 0x01) {
            algorithm = true;
        } else {
            return sw::wrongData;
        }
    }
    if (!algorithm || !isInApplication() || m_keys.count(environment.reference) == 0)
        return sw::referenceNotFound;
    m_environment = environment;
    return sw::ok;
}

Response AcosCard::privateKey(unsigned char use, const RsaKey*& key)
{
    if (!m_environment || m_environment->use != use || !m_environment->isPrivate)
        return sw::conditionsNotSatisfied;
    const KeyEntry& entry = m_keys.at(m_environment->reference);
    if (!m_pins.at(entry.pin).pin.verified())
        return sw::securityStatusNotSatisfied;
    key = entry.key;
    return sw::ok;
}

Response AcosCard::internalAuthenticate(const Command& command)
{
    const RsaKey* key = nullptr;
    if (command.p1p2() != 0x1000)
        return sw::wrongP1P2;
    Response allowed = privateKey(0xA4, key);
    if (allowed.sw != sw::ok)
        return allowed;
    if (command.data.empty() || command.data.size() > key->size() - kMinPadding)
        return sw::wrongLength;
    return key->sign(command.data);
}

Response AcosCard::decipher(const Command& command)
{
    const RsaKey* key = nullptr;
    Response allowed = privateKey(0xB8, key);
    if (allowed.sw != sw::ok)
        return allowed;
    if (command.data.size() != key->size() + 1)
        return sw::wrongLength;
    if (command.data.front() != 0x00)
        return sw::wrongData;
    const std::optional<Bytes> plain = key->decrypt({command.data.begin() + 1, command.data.end()});
    return plain ? Response(*plain) : Response(sw::wrongData);
}

Response AcosCard::encipher(const Command& command)
{
    if (!m_environment || m_environment->use != 0xB8 || m_environment->isPrivate)
        return sw::conditionsNotSatisfied;
    const RsaKey& key = *m_keys.at(m_environment->reference).key;
    if (command.data.empty() || command.data.size() > key.size() - kMinPadding)
        return sw::wrongLength;
    const Bytes block = padForEncryption(command.data, key.size());
    return join({Bytes{0x00}, RsaKey::publicOperation(key.modulus(), key.exponent(), block)});
}

AcosTrustCard::AcosTrustCard(const std::string& pin, bool withCertificate)
    : AcosCard(makeAtr(fromHex("455041000000000000000000000000")))
{
    const RsaKey& key = RsaKey::get(1024);
    m_hasPublicOperation = true;
    m_application = &FileSystem::addDF(m_files.mf(), 0xDF71, fromHex("A000000118454E"));
    Bytes keyFile = key.modulus();
    keyFile.resize(keyFile.size() + 16, 0x00);
    FileSystem::addEF(*m_application, 0xB001, keyFile);
    if (withCertificate) {
        Bytes certificate = key.certificate("A-Trust Card Holder");
        certificate.resize(certificate.size() + 100, 0x00);
        FileSystem::addEF(*m_application, 0xC001, certificate);
    }
    FileSystem::addEF(*m_application, 0xD001, fromHex("0123456789ABCDEF"));
    FileSystem::addEF(*m_application, 0xC003, Bytes(300, 0x2A));
    addPin(0x81, 0x00, pinBlock(pin, 0x00));
    addKey(0x88, key, 0x81);
    onReset();
}

/// Characters, then zeros.
bool AcosTrustCard::isNewPin(const Bytes& block) const
{
    const auto end = std::find(block.begin(), block.end(), 0x00);
    return end != block.begin() && std::count(end, block.end(), 0x00) == block.end() - end;
}

Response AcosTrustCard::process(const Command& command)
{
    // Free memory, a command of the operating system.
    if (command.cla == 0x80 && command.ins == 0xFA)
        return command.p1p2() == 0x0000 ? Response(twoBytes(0x1234)) : Response(sw::wrongP1P2);
    return AcosCard::process(command);
}

AcosEduCard::AcosEduCard(const std::string& pin)
    : AcosCard(makeAtr(fromHex("41434F000000000000000000000000")))
{
    m_changeClass = 0x80;
    m_application = &FileSystem::addDF(m_files.mf(), 0xDFA3);
    for (const unsigned char number : {1, 2}) {
        const RsaKey& key = RsaKey::get(1024, number);
        FileSystem::addEF(
            *m_application, number,
            tlv(0x30, join({tlv(0x02, join({Bytes{0x00}, key.modulus()})), tlv(0x02, key.exponent())})));
        FileSystem::addEF(*m_application, static_cast<unsigned short>(number + 2),
                          key.certificate("EDU Student " + std::to_string(number)));
        addKey(static_cast<unsigned char>(0x80 + number), key, static_cast<unsigned char>(0x82 + number));
    }
    const Bytes record = tlv(0x30, join({tlv(0x04, fromText("Matriculation")),
                                         tlv(0x04, fromText("University")), tlv(0x04, tlv(0x31, {}))}));
    for (const unsigned short id : {0x0005, 0x0006, 0x0007})
        FileSystem::addEF(*m_application, id, record);
    for (const unsigned char reference : {0x83, 0x84})
        addPin(reference, 0x20, packDigits(pin));
    addPin(0x85, 0x20, packDigits("12345678"));
    addPin(0x86, 0x20, packDigits("87654321"));
    onReset();
}

/// Digits, then F.
bool AcosEduCard::isNewPin(const Bytes& block) const
{
    const std::string text = toHex(block);
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    return digits != 0 && text.find_first_not_of('F', digits) == text.npos;
}

} // namespace vcard
