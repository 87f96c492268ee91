#pragma once

#include "util/TokenObject.h"

#include <memory>
#include <string>

/// An object over an attribute store that it owns.
class VantorCryptoObject {
public:
    VantorCryptoObject() = default;
    explicit VantorCryptoObject(std::unique_ptr<TokenObject> object) : m_object(std::move(object)) {}
    VantorCryptoObject(const VantorCryptoObject&) = delete;
    VantorCryptoObject& operator=(const VantorCryptoObject&) = delete;
    virtual ~VantorCryptoObject() = default;

    TokenObject* getTokenObject() const { return m_object.get(); }
    /// Empty when the store has none.
    std::string GetLabel() const;
    void SetLabel(const std::string& text);
    /// Empty when the store has none. Belongs to the interface; nothing in the library calls it.
    std::string GetID() const;
    /// Throws as TokenObject::set does.
    void SetAttribute(CK_ATTRIBUTE_TYPE type, const void* value, CK_ULONG length);

protected:
    std::unique_ptr<TokenObject> m_object;
};
