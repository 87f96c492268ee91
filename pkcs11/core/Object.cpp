#include "pkcs11/core/Object.h"

#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/Template.h"

#include <cstring>
#include <utility>
#include <vector>

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    readOnlyRow<&Object::getClass>(CKA_CLASS),
};

/// Calls visit(row, entry) for each row of the class chain, leaf first, that the template asks for; a row
/// meets the first entry of its type.
template <class Visitor>
void forEachRow(const AttributeTable& leaf, const CK_ATTRIBUTE* attributes, CK_ULONG count, Visitor visit)
{
    for (const AttributeTable* table = &leaf; table != nullptr; table = table->base) {
        for (const AttributeRow& row : *table) {
            const CK_ATTRIBUTE* entry = findAttribute(row.type, attributes, count);
            if (entry != nullptr)
                visit(row, *entry);
        }
    }
}

/// Whether the template's value equals the object's. Plain types compare by their own length, whatever stands
/// after it.
bool matches(Object& object, const AttributeRow& row, const CK_ATTRIBUTE& entry)
{
    if (entry.ulValueLen < row.valueLength || (entry.pValue == nullptr && entry.ulValueLen != 0))
        return false;
    const Blob value = row.get(object);
    if (row.valueLength == 0 && entry.ulValueLen != static_cast<CK_ULONG>(value.size()))
        return false;
    if (value.empty())
        return true;
    return entry.pValue != nullptr &&
           std::memcmp(entry.pValue, value.data(), static_cast<std::size_t>(value.size())) == 0;
}

/// Answers one entry of the template, a null value with the length only. False for too little room.
bool insert(const Blob& value, CK_ATTRIBUTE& entry)
{
    const auto length = static_cast<CK_ULONG>(value.size());
    if (entry.pValue != nullptr && entry.ulValueLen < length)
        return false;
    if (entry.pValue != nullptr && length != 0)
        std::memcpy(entry.pValue, value.data(), length);
    entry.ulValueLen = length;
    return true;
}

} // namespace

const AttributeTable Object::kAttributes = attributeTableOf(kRows, nullptr);

const AttributeTable& Object::attributeTable() const
{
    return kAttributes;
}

void Object::getAttribute(CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    if (count == 0)
        return;
    requirePointer(attributes);
    std::vector<bool> answered(count, false);
    forEachRow(attributeTable(), attributes, count, [&](const AttributeRow& row, const CK_ATTRIBUTE& found) {
        const auto index = static_cast<std::size_t>(&found - attributes);
        answered[index] = insert(row.get(*this), attributes[index]);
    });

    bool complete = true;
    for (std::size_t i = 0; i < answered.size(); ++i) {
        if (!answered[i]) {
            attributes[i].ulValueLen = CK_UNAVAILABLE_INFORMATION;
            complete = false;
        }
    }
    // A buffer that is too small is reported like an unknown attribute, deliberately.
    if (!complete)
        throw PKCS11Exception(CKR_ATTRIBUTE_TYPE_INVALID);
}

void Object::setAttribute(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    checkTemplate(attributes, count);
    std::vector<std::pair<const AttributeRow*, Blob>> changes;
    forEachRow(attributeTable(), attributes, count, [&](const AttributeRow& row, const CK_ATTRIBUTE& entry) {
        if (row.set == nullptr)
            return;
        Blob value = valueOf(entry);
        if (static_cast<CK_ULONG>(value.size()) < row.valueLength)
            throw PKCS11Exception(CKR_ATTRIBUTE_VALUE_INVALID);
        changes.emplace_back(&row, std::move(value));
    });
    for (const auto& [row, value] : changes)
        row->set(*this, value);
}

bool Object::testObject(const CK_ATTRIBUTE* attributes, CK_ULONG count, CK_ULONG matched)
{
    bool equal = true;
    const auto compare = [&](bool onDemand) {
        forEachRow(attributeTable(), attributes, count,
                   [&](const AttributeRow& row, const CK_ATTRIBUTE& entry) {
                       matched += onDemand ? 0 : 1;
                       equal = equal && (row.readOnDemand != onDemand || matches(*this, row, entry));
                   });
    };
    compare(false);
    equal = equal && matched == count;
    compare(true);
    return equal;
}

CK_ULONG Object::getObjectSize()
{
    throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED);
}

std::unique_ptr<Object> Object::createCopy(Object* /*original*/)
{
    throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED);
}

Blob Object::bytes(CK_ATTRIBUTE_TYPE type) const
{
    Blob value;
    m_attributes.GetParam(type, value);
    return value;
}

} // namespace PKCS11
