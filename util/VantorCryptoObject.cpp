#include "util/VantorCryptoObject.h"

namespace {

std::string textOf(const TokenObject* object, CK_ATTRIBUTE_TYPE type)
{
    if (object == nullptr || !object->has(type))
        return {};
    const CK_ATTRIBUTE attribute = object->get(type);
    return {static_cast<const char*>(attribute.pValue), attribute.ulValueLen};
}

} // namespace

std::string VantorCryptoObject::GetLabel() const
{
    return textOf(m_object.get(), CKA_LABEL);
}

void VantorCryptoObject::SetLabel(const std::string& text)
{
    SetAttribute(CKA_LABEL, text.data(), static_cast<CK_ULONG>(text.size()));
}

std::string VantorCryptoObject::GetID() const
{
    return textOf(m_object.get(), CKA_ID);
}

void VantorCryptoObject::SetAttribute(CK_ATTRIBUTE_TYPE type, const void* value, CK_ULONG length)
{
    if (m_object == nullptr)
        m_object = std::make_unique<TokenObject>();
    m_object->set(type, value, length);
}
