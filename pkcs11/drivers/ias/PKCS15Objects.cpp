#include "pkcs11/drivers/ias/PKCS15Objects.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/ias/IASToken.h"
#include "pkcs11/drivers/ias/PKCS15Mechanisms.h"
#include "pkcs11/token/Framing.h"

#include <algorithm>

namespace PKCS11 {

namespace {

CK_BBOOL boolean(bool value)
{
    return value ? CK_TRUE : CK_FALSE;
}

void takeCommonAttributes(Storage& object, const PKCS15CommonObjectAttributes& record)
{
    object.setLabel(record.label);
    object.setPrivate(boolean(record.isPrivate()));
    object.setModifiable(boolean(record.isModifiable()));
}

CK_KEY_TYPE keyTypeOf(int objectType)
{
    switch (objectType) {
    case constructedTag(0):
        return CKK_EC;
    case constructedTag(1):
        return CKK_DH;
    case constructedTag(2):
        return CKK_DSA;
    case constructedTag(3):
        return CKK_KEA;
    default:
        return CKK_RSA;
    }
}

/// The day of a GeneralizedTime; none for one that does not begin with eight digits.
CK_DATE dateOf(const Blob& time)
{
    CK_DATE date{};
    const Blob day = time.slice(0, sizeof date);
    const auto isDigit = [](unsigned char c) { return c >= '0' && c <= '9'; };
    if (day.size() == sizeof date && std::all_of(day.begin(), day.end(), isDigit))
        std::copy(day.begin(), day.end(), reinterpret_cast<unsigned char*>(&date));
    return date;
}

template <class CardKey>
void takeKeyAttributes(CardKey& key, const PKCS15PrivateKeyObject& record)
{
    const PKCS15CommonKeyAttributes& attributes = record.key;
    takeCommonAttributes(key, record);
    key.initKeyType(keyTypeOf(record.objectType));
    key.setID(attributes.iD);
    key.setLocal(boolean(attributes.GetKeyAccess(PKCS15_ACCESS_LOCAL)));
    if (!attributes.startDate.empty())
        key.setStartDate(dateOf(attributes.startDate));
    if (!attributes.endDate.empty())
        key.setEndDate(dateOf(attributes.endDate));
}

/// Nothing for a key without a reference.
RsaComponents publicKeyOf(IASToken& token, std::optional<unsigned char> reference)
{
    RsaComponents key;
    if (reference)
        key.isWhole = token.ReadPublicKey(*reference, key.modulus, key.exponent);
    return key;
}

/// True when the key may do one of these; a record that tells no usage allows all.
bool allows(const PKCS15CommonKeyAttributes& key, std::initializer_list<PKCS15KeyUsage> usages)
{
    return key.usage.empty() || std::any_of(usages.begin(), usages.end(),
                                            [&key](PKCS15KeyUsage usage) { return key.GetKeyUsage(usage); });
}

} // namespace

PKCS15Certificate::PKCS15Certificate(IASToken& token, const PKCS15CertificateObject& record)
    : m_token(token), m_record(record)
{
    takeCommonAttributes(*this, record);
    setID(record.iD);
}

CardValue PKCS15Certificate::readValue()
{
    CardValue value = m_token.readValue(m_record, m_record.path);
    Blob certificate = MakeTLVCoded(value.bytes);
    if (!certificate.empty())
        value.bytes = std::move(certificate);
    return value;
}

PKCS15PublicKey::PKCS15PublicKey(IASToken& token, const PKCS15PrivateKeyObject& record)
    : m_token(token), m_record(record)
{
    const PKCS15CommonKeyAttributes& attributes = record.key;
    takeKeyAttributes(*this, record);
    setEncrypt(boolean(allows(attributes, {PKCS15_USAGE_ENCRYPT, PKCS15_USAGE_WRAP})));
    setVerify(boolean(allows(attributes, {PKCS15_USAGE_VERIFY, PKCS15_USAGE_VERIFY_RECOVER}) ||
                      attributes.isForNonRepudiation()));
}

RsaComponents PKCS15PublicKey::readComponents()
{
    return publicKeyOf(m_token, m_token.publicKeyReference(m_record));
}

PKCS15PrivateKey::PKCS15PrivateKey(IASToken& token, const PKCS15PrivateKeyObject& record)
    : m_token(token), m_record(record)
{
    const PKCS15CommonKeyAttributes& attributes = record.key;
    takeKeyAttributes(*this, record);
    setSign(boolean(allows(attributes, {PKCS15_USAGE_SIGN, PKCS15_USAGE_SIGN_RECOVER}) ||
                    attributes.isForNonRepudiation()));
    setDecrypt(boolean(allows(attributes, {PKCS15_USAGE_DECRYPT, PKCS15_USAGE_UNWRAP})));
    setSensitive(boolean(attributes.GetKeyAccess(PKCS15_ACCESS_SENSITIVE)));
    setExtractable(boolean(attributes.GetKeyAccess(PKCS15_ACCESS_EXTRACTABLE)));
    setAlwaysSensitive(boolean(attributes.GetKeyAccess(PKCS15_ACCESS_ALWAYS_SENSITIVE)));
    setNeverExtractable(boolean(attributes.GetKeyAccess(PKCS15_ACCESS_NEVER_EXTRACTABLE)));
}

unsigned char PKCS15PrivateKey::keyReference(const char* where) const
{
    const auto reference = m_record.key.reference();
    if (!reference)
        throw PKCS11Exception(CKR_DEVICE_ERROR, "", where);
    return *reference;
}

int PKCS15PrivateKey::signatureLength()
{
    return lengthOf(getModulus());
}

int PKCS15PrivateKey::knownSignatureLength()
{
    return lengthOf(knownModulus());
}

int PKCS15PrivateKey::lengthOf(const Blob& modulus) const
{
    return modulus.empty() ? integerOf(m_record.modulusLength) / 8 : modulus.size();
}

std::unique_ptr<Mechanism> PKCS15PrivateKey::createSignMechanism(CK_MECHANISM* /*mechanism*/,
                                                                 MechanismInfo* /*info*/)
{
    return std::make_unique<PKCS15MechanismSign>(*this);
}

std::unique_ptr<Mechanism> PKCS15PrivateKey::createDecryptMechanism(CK_MECHANISM* /*mechanism*/,
                                                                    MechanismInfo* /*info*/)
{
    return std::make_unique<PKCS15MechanismDecrypt>(*this);
}

RsaComponents PKCS15PrivateKey::readComponents()
{
    return publicKeyOf(m_token, m_record.key.reference());
}

PKCS15Data::PKCS15Data(IASToken& token, const PKCS15DataObject& record) : m_token(token), m_record(record)
{
    takeCommonAttributes(*this, record);
    setApplication(record.applicationName);
    setObjectIdentifier(record.applicationOID.empty() ? record.objectOID : record.applicationOID);
}

CardValue PKCS15Data::readValue()
{
    return m_token.readValue(m_record, m_record.path);
}

} // namespace PKCS11
