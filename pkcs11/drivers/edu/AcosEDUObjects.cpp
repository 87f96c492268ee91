#include "pkcs11/drivers/edu/AcosEDUObjects.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/edu/AcosEDUMechanisms.h"
#include "pkcs11/drivers/edu/AcosEDUToken.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Hex.h"
#include "pkcs11/token/InfoRecords.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr char kReadBinary[] = "00b0000000";

Blob keyName(int number)
{
    return Blob("DIGSIG" + std::to_string(number));
}

/// The first INTEGER or string at or below the node, depth first; empty when there is none.
Blob firstNumber(const BERCoder& node)
{
    if (!node.getTag().IsConstructed()) {
        if (node.getTag() == kInteger || node.getTag() == kOctetString)
            return node.getValue();
        // A BIT STRING begins with the count of its unused bits.
        return node.getTag() == kBitString ? node.getValue().slice(1) : Blob();
    }
    for (int i = 0; i < node.getSize(); ++i) {
        Blob found = firstNumber(node.component(i));
        if (!found.empty())
            return found;
    }
    return {};
}

/// A record as the card holds it; an empty one where the content is no such record.
template <class Record>
Record recordOf(const Blob& content)
{
    try {
        return Record(content);
    } catch (const PKCS11Exception&) {
        return Record();
    }
}

template <class Key>
void describe(Key& key, AcosEDUToken& token, int number)
{
    key.setLabel(keyName(number));
    key.setID(keyName(number));
    Blob content;
    if (token.card().SendCmd(PKCS11_hex2blob(kReadBinary), content) == SW_SUCCESS)
        key.setModulus(modulusOfKeyFile(content));
    key.setPublicExponent(acosPublicExponent());
}

} // namespace

Blob modulusOfKeyFile(const Blob& content)
{
    Blob raw = stripTrailingZeros(content);
    try {
        BERCoder file;
        const int end = file.import(content, 0);
        // Zeros after the TLV are padding.
        if (std::all_of(content.begin() + end, content.end(), [](unsigned char byte) { return byte == 0; })) {
            Blob number = stripSignByte(firstNumber(file));
            if (!number.empty())
                return number;
        }
    } catch (const PKCS11Exception&) {
        // No TLV: the file is the modulus itself.
        return raw;
    }
    return raw;
}

AcosEDUPublicKey::AcosEDUPublicKey(AcosEDUToken& token, int number)
{
    describe(*this, token, number);
}

AcosEDUPrivateKey::AcosEDUPrivateKey(AcosEDUToken& token, int number) : m_token(token), m_number(number)
{
    describe(*this, token, number);
}

std::unique_ptr<Mechanism> AcosEDUPrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                  MechanismInfo* /*info*/)
{
    return std::make_unique<AcosEDUMechanismSign>(m_token, m_number, getModulus().size());
}

std::unique_ptr<Mechanism> AcosEDUPrivateKey::createDecryptMechanism(CK_MECHANISM* mechanism,
                                                                     MechanismInfo* /*info*/)
{
    return std::make_unique<AcosEDUMechanismDecrypt>(m_token, m_number, mechanism->mechanism);
}

AcosEDUCertificate::AcosEDUCertificate(AcosEDUToken& token)
{
    Blob content;
    static_cast<void>(token.card().ReadBinary(content)); // what there is of it
    const auto record = recordOf<CertificateInfo>(content);
    setLabel(record.getLabel());
    setID(record.getID());
    setValue(content);
}

AcosEDUData::AcosEDUData(AcosEDUToken& token)
{
    const Blob content = token.readDataFile();
    const auto record = recordOf<DataInfo>(content);
    setLabel(record.getLabel());
    setApplication(record.getApplication());
    setValue(content);
}

} // namespace PKCS11
