/// The attributes of an object class as rows of a table: type, getter and setter. The three attribute calls
/// of Object walk these tables from the leaf class down, and the lengths of values are checked there and
/// nowhere else.
#pragma once

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Blob.h"

#include <cstring>
#include <type_traits>

namespace PKCS11 {

class Object;

/// One attribute of an object class: how it is read and set.
struct AttributeRow {
    CK_ATTRIBUTE_TYPE type;
    /// Smallest length of a value in bytes: 1 for a boolean, sizeof(CK_ULONG), 8 for a date, 0 for bytes.
    CK_ULONG valueLength;
    /// The value as CK_ATTRIBUTE carries it. May read the card.
    Blob (*get)(Object& object);
    /// Null for a read-only attribute. The value has at least valueLength bytes.
    void (*set)(Object& object, const Blob& value);
    /// A search compares the value only when nothing else rules the object out.
    bool readOnDemand = false;
};

/// The rows of one class and the table of its base class, null at Object.
struct AttributeTable {
    const AttributeRow* rows;
    int count;
    const AttributeTable* base;

    const AttributeRow* begin() const { return rows; }
    const AttributeRow* end() const { return rows + count; }
};

namespace detail {

template <class Member>
struct MemberTraits;
template <class C, class V>
struct MemberTraits<V (C::*)()> {
    using Class = C;
    using Value = V;
};
template <class C, class V>
struct MemberTraits<V (C::*)() const> {
    using Class = C;
    using Value = V;
};
template <class C, class V>
struct MemberTraits<void (C::*)(V)> {
    using Class = C;
    using Value = std::decay_t<V>;
};

/// Length of the plain types; bytes may have any length.
template <class Value>
constexpr CK_ULONG valueLength()
{
    return std::is_same_v<Value, Blob> ? 0 : sizeof(Value);
}

template <auto Getter>
Blob readAttribute(Object& object)
{
    using Traits = MemberTraits<decltype(Getter)>;
    auto value = (static_cast<typename Traits::Class&>(object).*Getter)();
    if constexpr (std::is_same_v<decltype(value), Blob>)
        return value;
    else
        return Blob::fromMemory(&value, sizeof value);
}

template <auto Setter>
void writeAttribute(Object& object, const Blob& bytes)
{
    using Traits = MemberTraits<decltype(Setter)>;
    auto& target = static_cast<typename Traits::Class&>(object);
    if constexpr (std::is_same_v<typename Traits::Value, Blob>) {
        (target.*Setter)(bytes);
    } else {
        typename Traits::Value value{};
        std::memcpy(&value, bytes.data(), sizeof value);
        (target.*Setter)(value);
    }
}

} // namespace detail

/// A row that C_SetAttributeValue passes over.
template <auto Getter>
constexpr AttributeRow readOnlyRow(CK_ATTRIBUTE_TYPE type)
{
    using Value = typename detail::MemberTraits<decltype(Getter)>::Value;
    return {type, detail::valueLength<Value>(), &detail::readAttribute<Getter>, nullptr};
}

template <auto Getter, auto Setter>
constexpr AttributeRow attributeRow(CK_ATTRIBUTE_TYPE type)
{
    using Value = typename detail::MemberTraits<decltype(Getter)>::Value;
    return {type, detail::valueLength<Value>(), &detail::readAttribute<Getter>,
            &detail::writeAttribute<Setter>};
}

/// A row whose value may have to be read from the card.
constexpr AttributeRow onDemand(AttributeRow row)
{
    row.readOnDemand = true;
    return row;
}

template <int N>
constexpr AttributeTable attributeTableOf(const AttributeRow (&rows)[N], const AttributeTable* base)
{
    return {rows, N, base};
}

} // namespace PKCS11
