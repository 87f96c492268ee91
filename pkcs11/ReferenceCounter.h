#pragma once

namespace PKCS11 {

/// Base of objects with several holders. The count starts at 1; holders raise and lower it by hand, and
/// whoever lowers it to 0 deletes the object.
class ReferenceCounter {
public:
    ReferenceCounter() = default;
    ReferenceCounter(const ReferenceCounter&) = delete;
    ReferenceCounter& operator=(const ReferenceCounter&) = delete;
    virtual ~ReferenceCounter() = default;

    void addReference() noexcept { ++m_count; }
    /// Lowers the count and deletes the object when it reaches 0.
    void release()
    {
        if (--m_count == 0)
            delete this;
    }

private:
    int m_count = 1;
};

} // namespace PKCS11
