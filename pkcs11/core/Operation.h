#pragma once

namespace PKCS11 {

/// Base of every cryptographic operation that a session holds.
class Operation {
public:
    Operation() = default;
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    virtual ~Operation() = default;

    /// Set by the session between the start and the end of the operation.
    bool isActive() const { return m_active; }
    void setActive(bool active) { m_active = active; }

private:
    bool m_active = false;
};

} // namespace PKCS11
