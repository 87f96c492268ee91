#include "pkcs11/drivers/common/CardObjects.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"
#include "util/CryptoUse.h"
#include "util/VantorException.h"
#include "util/VantorX509Certificate.h"

namespace PKCS11 {

namespace {

template <class Key>
constexpr AttributeRow kModulusRow = onDemand(attributeRow<&Key::getModulus, &Key::setModulus>(CKA_MODULUS));
template <class Key>
constexpr AttributeRow kPublicExponentRow =
    onDemand(attributeRow<&Key::getPublicExponent, &Key::setPublicExponent>(CKA_PUBLIC_EXPONENT));

constexpr AttributeRow kPrivateKeyRows[] = {
    kModulusRow<CardPrivateKey>,
    kPublicExponentRow<CardPrivateKey>,
};

constexpr AttributeRow kPublicKeyRows[] = {
    kModulusRow<CardPublicKey>,
    kPublicExponentRow<CardPublicKey>,
    onDemand(readOnlyRow<&CardPublicKey::getModulusBits>(CKA_MODULUS_BITS)),
};

/// The value that the object keeps, else the one that `read` brings from the card, kept when it is whole.
template <class Base, class Read>
Blob valueOf(Base& object, Read read)
{
    Blob kept = object.Base::getValue();
    if (!kept.empty())
        return kept;
    const CardValue value = read();
    if (value.isWhole)
        object.setValue(value.bytes);
    return value.bytes;
}

/// A certificate tells its length: after its last byte a card may answer what it likes.
bool beginsWithCertificate(const Blob& bytes)
{
    try {
        BERCoder().import(bytes, 0);
        return bytes.at(0) == kSequence;
    } catch (const PKCS11Exception&) {
        return false;
    }
}

/// The stored value, or nothing where the certificate has none.
Blob storedValue(const VantorX509Certificate& certificate, CK_ATTRIBUTE_TYPE type)
{
    const TokenObject* store = certificate.getTokenObject();
    if (store == nullptr || !store->has(type))
        return {};
    const CK_ATTRIBUTE attribute = store->get(type);
    return Blob::fromMemory(attribute.pValue, attribute.ulValueLen);
}

} // namespace

const AttributeTable CardPrivateKey::kAttributes =
    attributeTableOf(kPrivateKeyRows, &PrivateKey::kAttributes);
const AttributeTable CardPublicKey::kAttributes = attributeTableOf(kPublicKeyRows, &PublicKey::kAttributes);

CardPrivateKey::CardPrivateKey()
{
    CardPrivateKey::setOnToken(CK_TRUE);
    CardPrivateKey::setSign(CK_TRUE);
    CardPrivateKey::setDecrypt(CK_TRUE);
}

std::unique_ptr<Mechanism> CardPrivateKey::createSignRecoveryMechanism(CK_MECHANISM* /*mechanism*/,
                                                                       MechanismInfo* /*info*/)
{
    return nullptr;
}

CardPublicKey::CardPublicKey()
{
    CardPublicKey::setOnToken(CK_TRUE);
    CardPublicKey::setEncrypt(CK_TRUE);
    CardPublicKey::setVerify(CK_TRUE);
}

std::unique_ptr<Mechanism> CardPublicKey::createVerifyMechanism(CK_MECHANISM* /*mechanism*/,
                                                                MechanismInfo* /*info*/)
{
    return nullptr;
}

std::unique_ptr<Mechanism> CardPublicKey::createVerifyRecoveryMechanism(CK_MECHANISM* /*mechanism*/,
                                                                        MechanismInfo* /*info*/)
{
    return nullptr;
}

std::unique_ptr<Mechanism> CardPublicKey::createEncryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                 MechanismInfo* /*info*/)
{
    return nullptr;
}

CardCertificate::CardCertificate()
{
    CardCertificate::setOnToken(CK_TRUE);
}

Blob CardCertificate::getValue()
{
    return valueOf<X509PublicKeyCertificate>(*this, [this] {
        CardValue value = readValue();
        value.isWhole = value.isWhole || beginsWithCertificate(value.bytes);
        return value;
    });
}

Blob CardCertificate::getSerialNumber()
{
    loadAttr();
    return X509PublicKeyCertificate::getSerialNumber();
}

Blob CardCertificate::getIssuer()
{
    loadAttr();
    return X509PublicKeyCertificate::getIssuer();
}

Blob CardCertificate::getSubject()
{
    loadAttr();
    return X509PublicKeyCertificate::getSubject();
}

void CardCertificate::loadAttr()
{
    if (m_parsed)
        return;
    getValue();
    // A read that throws, or that brings nothing whole, leaves the next one a chance.
    Blob value = X509PublicKeyCertificate::getValue();
    if (value.empty())
        return;
    const CryptoUse use;
    try {
        const VantorX509Certificate certificate(
            {CKA_VALUE, value.data(), static_cast<CK_ULONG>(value.size())});
        // What a caller has set already stays.
        if (X509PublicKeyCertificate::getSubject().empty())
            setSubject(storedValue(certificate, CKA_SUBJECT));
        if (X509PublicKeyCertificate::getIssuer().empty())
            setIssuer(storedValue(certificate, CKA_ISSUER));
        if (X509PublicKeyCertificate::getSerialNumber().empty())
            setSerialNumber(storedValue(certificate, CKA_SERIAL_NUMBER));
    } catch (const VantorException&) {
        // No certificate: the object keeps its value and does without the three.
    }
    m_parsed = true;
}

CardData::CardData()
{
    CardData::setOnToken(CK_TRUE);
}

Blob CardData::getValue()
{
    return valueOf<Data>(*this, [this] { return readValue(); });
}

} // namespace PKCS11
