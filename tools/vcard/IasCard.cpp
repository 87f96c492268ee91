#include "tools/vcard/IasCard.h"

#include "tools/vcard/Bytes.h"

#include <algorithm>
#include <stdexcept>

namespace vcard {

namespace {

constexpr std::ptrdiff_t kFewestDigits = 4;
constexpr unsigned char kPinReference = 0x81;
constexpr unsigned char kPukReference = 0x82;
constexpr unsigned char kFirstKey = 0x81;
constexpr unsigned char kUseAuthentication = 0xA4;
constexpr unsigned char kUseConfidentiality = 0xB8;

constexpr unsigned short kOdf = 0x5031;
constexpr unsigned short kTokenInfo = 0x5032;
constexpr unsigned short kAuthentication = 0x4401;
constexpr unsigned short kCertificates = 0x4402;
constexpr unsigned short kPrivateKeys = 0x4403;
constexpr unsigned short kPublicKeys = 0x4404;
constexpr unsigned short kDataObjects = 0x4405; ///< in a DF of its own
constexpr unsigned short kSerialNumberFile = 0xD003;
constexpr unsigned short kEfDir = 0x2F00;
constexpr unsigned short kFirstCertificate = 0xB001;
constexpr unsigned short kPublicData = 0xDA01;
constexpr unsigned short kPrivateData = 0xDA02;

// Elements of PKCS#15 records. A PIN is identified by its reference.
Bytes path(const std::string& hex)
{
    return tlv(0x30, tlv(0x04, fromHex(hex)));
}
Bytes common(const std::string& label, bool isPrivate)
{
    return tlv(0x30, isPrivate ? join({tlv(0x0C, fromText(label)), tlv(0x03, {0x07, 0x80}),
                                       tlv(0x04, {kPinReference})})
                               : join({tlv(0x0C, fromText(label)), tlv(0x03, {0x06, 0x40})}));
}
Bytes authenticationObject(const std::string& label, unsigned char reference)
{
    const Bytes pin =
        join({tlv(0x03, {0x04, 0x50}), tlv(0x0A, {0x01}), tlv(0x02, {kFewestDigits}), tlv(0x02, {kPinBlock}),
              tlv(0x02, {kPinBlock}), tlv(0x80, {reference}), tlv(0x04, {0xFF})});
    return tlv(0x30,
               join({common(label, false), tlv(0x30, tlv(0x04, {reference})), tlv(0xA1, tlv(0x30, pin))}));
}
Bytes keyObject(const Bytes& commonAttributes, unsigned char id, const Bytes& usage, int bits)
{
    const unsigned char reference = static_cast<unsigned char>(kFirstKey + id - 1);
    const Bytes key =
        join({tlv(0x04, {id}), tlv(0x03, usage), tlv(0x03, {0x04, 0xB0}), tlv(0x02, {0x00, reference})});
    const Bytes type = join({path("3F00"), tlv(0x02, twoBytes(static_cast<unsigned>(bits)))});
    return tlv(0x30, join({commonAttributes, tlv(0x30, key), tlv(0xA1, tlv(0x30, type))}));
}
Bytes certificateObject(const std::string& label, unsigned char id, size_t size)
{
    const Bytes where = join({tlv(0x04, twoBytes(kFirstCertificate + id - 1U)), tlv(0x02, {0x00}),
                              tlv(0x80, twoBytes(static_cast<unsigned>(size)))});
    return tlv(0x30, join({common(label, false), tlv(0x30, tlv(0x04, {id})),
                           tlv(0xA1, tlv(0x30, tlv(0x30, where)))}));
}
Bytes dataObject(const std::string& label, bool isPrivate, const Bytes& where)
{
    return tlv(0x30,
               join({common(label, isPrivate), tlv(0x30, tlv(0x0C, fromText("Quarvel"))), tlv(0xA1, where)}));
}

/// SEQUENCE { SEQUENCE, OCTET STRING }
bool isDigestInfo(const Bytes& data)
{
    const auto outer = parseTlvs(data);
    if (!outer || outer->size() != 1 || outer->front().tag != 0x30)
        return false;
    const auto inner = parseTlvs(outer->front().value);
    return inner && inner->size() == 2 && inner->at(0).tag == 0x30 && inner->at(1).tag == 0x04;
}

} // namespace

IasCard::IasCard(const IasOptions& options)
    : IsoCard(makeAtr(fromHex("0031B8644070141073940180829000"))),
      m_keys{&RsaKey::get(options.rsaBits, 0), &RsaKey::get(options.rsaBits, 1)},
      m_certificates{m_keys[0]->certificate("IAS Card Holder"), m_keys[1]->certificate("IAS Signatory")},
      m_pin(pinBlock(options.pin)),
      m_puk(pinBlock(options.puk))
{
    addFiles(options);
    onReset();
}

void IasCard::addFiles(const IasOptions& options)
{
    const Bytes aid = fromHex("E828BD080FD2500000040301");
    const int bits = options.rsaBits;
    FileSystem::addEF(m_files.mf(), kEfDir, tlv(0x61, join({tlv(0x4F, aid), tlv(0x50, fromText("eID"))})));
    FileSystem::addEF(m_files.mf(), kSerialNumberFile, fromHex("5A0A01020304050607080910"));
    FileSystem::addDF(m_files.mf(), 0x5000, fromHex("A000000077010800070000FE")); // the applet's own
    m_application = &FileSystem::addDF(m_files.mf(), 0x5015, aid);
    File& data = FileSystem::addDF(*m_application, 0x5016);
    const auto put = [this](unsigned short id, std::initializer_list<Bytes> records) -> File& {
        return FileSystem::addEF(*m_application, id, join(records));
    };
    const Bytes names = join({tlv(0x0C, fromText("Virtual Cards")), tlv(0x80, fromText("IAS Card"))});
    put(kTokenInfo,
        {tlv(0x30, join({tlv(0x02, {0x01}), tlv(0x04, fromHex("0A0B")), names, tlv(0x03, {0x04, 0x10})}))});
    // Directories under the application, one with its path from the MF, and one in a DF; then padding.
    put(kOdf, {tlv(0xA8, path("4401")), tlv(0xA0, path("4403")), tlv(0xA1, path("4404")),
               tlv(0xA4, path("3F0050154402")), tlv(0xA7, path("3F00501550164405")), Bytes(16)});
    put(kAuthentication,
        {authenticationObject("PIN", kPinReference), authenticationObject("PUK", kPukReference)});
    put(kPrivateKeys, {keyObject(common("Authentication Key", true), 1, {0x02, 0x64}, bits),
                       keyObject(common("Signature Key", true), 2, {0x06, 0x00, 0x40}, bits)});
    put(kPublicKeys, {keyObject(common("Authentication Key", false), 1, {0x01, 0x8A}, bits),
                      keyObject(common("Signature Key", false), 2, {0x01, 0x02}, bits)});
    put(kCertificates,
        {certificateObject("Authentication Certificate", 1, m_certificates[0].size()),
         certificateObject("Signature Certificate", 2, m_certificates[1].size()), Bytes(8, 0xFF)});
    put(kFirstCertificate, {m_certificates[0], Bytes(32)});
    put(kFirstCertificate + 1, {m_certificates[1], Bytes(32)});
    // Identifiers stand for a file in their DF only.
    for (const unsigned short id : {kPublicData, kPrivateData})
        put(id, {fromText("Another file of that name.")});
    const Bytes notes = fromText("Anyone may read this.");
    const auto length = static_cast<unsigned char>(notes.size());
    FileSystem::addEF(data, kPublicData, join({Bytes(2), notes, Bytes(9)}));
    FileSystem::addEF(data, kPrivateData, fromText("Only with the PIN.")).readable = [this] {
        return m_pin.verified();
    };
    const Bytes part =
        tlv(0x30, join({tlv(0x04, fromHex("5016DA01")), tlv(0x02, {0x02}), tlv(0x80, {length})}));
    FileSystem::addEF(
        data, kDataObjects,
        join({dataObject("Notes", false, part), dataObject("Secret", true, path("3F0050155016DA02"))}));
}

File& IasCard::file(unsigned short id)
{
    std::vector<File*> files{&m_files.mf()};
    for (size_t i = 0; i < files.size(); ++i) {
        if (files[i]->id == id)
            return *files[i];
        for (const auto& child : files[i]->children)
            files.push_back(child.get());
    }
    throw std::out_of_range("no such file");
}

void IasCard::onReset()
{
    m_files.reset();
    m_environment.reset();
    m_pin.forget();
    m_puk.forget();
}

Response IasCard::process(const Command& command)
{
    if (command.cla != 0x00)
        return sw::claNotSupported;
    switch (command.ins) {
    case 0x20:
    case 0x24:
    case 0x2C:
        return usePin(command);
    case 0x22:
        return setEnvironment(command);
    case 0x2A:
        return decipher(command);
    case 0x88:
        return internalAuthenticate(command);
    case 0xA4:
        return select(command);
    case 0xB0:
        return m_files.readBinary(command);
    case 0xCB:
        return getData(command);
    default:
        return sw::insNotSupported;
    }
}

Response IasCard::select(const Command& command)
{
    const File* before = &m_files.currentDF();
    Response response = m_files.selectCommand(command);
    const File* now = &m_files.currentDF();
    if (now != before)
        m_environment.reset();
    // The PINs are the application's: whoever leaves it has to show them again.
    if (now != m_application && now->parent != m_application) {
        m_pin.forget();
        m_puk.forget();
    }
    return response;
}

Response IasCard::usePin(const Command& command)
{
    const bool resetsCounter = command.ins == 0x2C;
    if (command.p1 != (resetsCounter ? 0x02 : 0x00))
        return sw::wrongP1P2;
    if (&m_files.currentDF() != m_application || (command.p2 != kPinReference && command.p2 != kPukReference))
        return sw::referenceNotFound;
    Pin& pin = command.p2 == kPinReference ? m_pin : m_puk;
    if (command.ins == 0x20 && command.data.empty())
        return pin.verify({});
    if (command.data.size() != (command.ins == 0x24 ? 2 * kPinBlock : kPinBlock))
        return sw::wrongLength;
    const Bytes fresh(command.data.end() - kPinBlock, command.data.end());
    const Bytes shown(command.data.begin(), command.data.begin() + kPinBlock);
    if (!isPinBlock(fresh, kFewestDigits) || !isPinBlock(shown, kFewestDigits))
        return sw::wrongData;
    if (command.ins == 0x20)
        return pin.verify(shown);
    if (command.ins == 0x24)
        return pin.change(shown, fresh);
    if (!m_puk.verified() || &pin == &m_puk)
        return sw::securityStatusNotSatisfied;
    pin.unblock(fresh);
    return sw::ok;
}

Response IasCard::getData(const Command& command) const
{
    // The one extended header list that is known here: public key n, that is 70, BF A0 0n, 7F49 with all it
    // has.
    Bytes wanted = fromHex("4D097007BFA000037F4980");
    if (command.p1p2() != 0x3FFF)
        return sw::wrongP1P2;
    if (command.data.size() != wanted.size())
        return sw::wrongData;
    const size_t number = command.data[6];
    wanted[6] = command.data[6];
    if (command.data != wanted)
        return sw::wrongData;
    if (&m_files.currentDF() != m_application || number == 0 || number > m_keys.size())
        return sw::referenceNotFound;
    const RsaKey& key = *m_keys[number - 1];
    const Bytes components = join({tlv(0x81, key.modulus()), tlv(0x82, key.exponent())});
    return tlv(0x70, tlv(0xBFA000U | static_cast<unsigned>(number), tlv(0x7F49, components)));
}

Response IasCard::setEnvironment(const Command& command)
{
    m_environment.reset();
    if (command.p1 != 0x41 || (command.p2 != kUseAuthentication && command.p2 != kUseConfidentiality))
        return sw::wrongP1P2;
    const auto elements = parseTlvs(command.data);
    if (!elements || elements->size() != 2 || elements->at(0).tag != 0x80 || elements->at(1).tag != 0x84 ||
        elements->at(0).value !=
            Bytes{static_cast<unsigned char>(command.p2 == kUseAuthentication ? 0x02 : 0x1A)} ||
        elements->at(1).value.size() != 1)
        return sw::wrongData;
    const unsigned char key = elements->at(1).value[0];
    const bool allowed = key == kFirstKey || (key == kFirstKey + 1 && command.p2 == kUseAuthentication);
    if (&m_files.currentDF() != m_application || !allowed)
        return sw::referenceNotFound;
    m_environment = Environment{command.p2, key};
    return sw::ok;
}

unsigned short IasCard::mayUseKey(unsigned char use) const
{
    if (!m_environment || m_environment->use != use)
        return sw::conditionsNotSatisfied;
    return m_pin.verified() ? sw::ok : sw::securityStatusNotSatisfied;
}

Response IasCard::internalAuthenticate(const Command& command) const
{
    if (command.p1p2() != 0x0000)
        return sw::wrongP1P2;
    if (const unsigned short status = mayUseKey(kUseAuthentication); status != sw::ok)
        return status;
    const RsaKey& key = *m_keys.at(m_environment->key - kFirstKey);
    if (command.data.size() + kMinPadding > key.size() || !isDigestInfo(command.data))
        return sw::wrongData;
    return key.sign(command.data);
}

Response IasCard::decipher(const Command& command) const
{
    if (command.p1p2() != 0x8086)
        return sw::wrongP1P2;
    if (const unsigned short status = mayUseKey(kUseConfidentiality); status != sw::ok)
        return status;
    const RsaKey& key = *m_keys.at(m_environment->key - kFirstKey);
    if (command.data.size() != key.size() + 1 || command.data[0] != 0x81)
        return sw::wrongData;
    const std::optional<Bytes> plain = key.decrypt({command.data.begin() + 1, command.data.end()});
    return plain ? Response(*plain) : Response(sw::wrongData);
}

} // namespace vcard
