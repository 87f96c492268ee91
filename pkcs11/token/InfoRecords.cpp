#include "pkcs11/token/InfoRecords.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERTags.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr int kFirstByteOfTokenInfo = 2;
constexpr int kFieldsOfTokenInfo = 5;

std::size_t checkedField(int i, std::size_t count)
{
    if (i < 0 || static_cast<std::size_t>(i) >= count)
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    return static_cast<std::size_t>(i);
}

} // namespace

const Blob& InfoRecord::field(int i) const
{
    return m_fields[checkedField(i, m_fields.size())];
}

void InfoRecord::setField(int i, const Blob& value)
{
    m_fields[checkedField(i, m_fields.size())] = value;
}

Blob InfoRecord::Export() const
{
    BERCoder record(kSequence);
    for (const Blob& field : m_fields)
        record.append(BERCoder(kOctetString, field));
    record.append(BERCoder(kOctetString, GetAttrs()));
    Blob encoded;
    record.Export(encoded);
    return encoded;
}

void InfoRecord::importRecord(const Blob& encoded)
{
    BERCoder record;
    record.import(encoded, 0);
    std::vector<const Blob*> elements;
    for (int i = 0; i < record.getSize(); ++i) {
        if (record.component(i).getTag() == kOctetString)
            elements.push_back(&record.component(i).getValue());
    }
    if (elements.empty())
        return;
    const Blob& attributes = *elements.back();
    elements.pop_back();
    for (std::size_t i = 0; i < std::min(elements.size(), m_fields.size()); ++i)
        m_fields[i] = *elements[i];
    SetAttrs(attributes);
}

Blob InfoRecord::attributeOrField(CK_ATTRIBUTE_TYPE type, int field) const
{
    Blob value;
    GetParam(type, value);
    return value.empty() ? this->field(field) : value;
}

TokenInfo::TokenInfo() : InfoRecord({{}, {}, Blob(1, 10), Blob(1, 6), Blob(1, 15)}) {}

TokenInfo::TokenInfo(const Blob& encoded) : TokenInfo()
{
    importRecord(encoded);
    const TokenInfo defaults;
    for (int i = kFirstByteOfTokenInfo; i < kFieldsOfTokenInfo; ++i)
        setField(i, field(i).empty() ? defaults.field(i) : field(i).slice(0, 1));
}

void TokenInfo::setLabel(const Blob& label)
{
    setField(0, label);
    Blob attribute;
    GetParam(CKA_LABEL, attribute);
    if (!attribute.empty())
        SetParam(CKA_LABEL, label);
}

} // namespace PKCS11
