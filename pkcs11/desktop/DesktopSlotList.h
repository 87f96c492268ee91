#pragma once

#include "pkcs11/pcsc/SlotList.h"

namespace PKCS11 {

/// The slot of the reader with that name, or 0.
CK_SLOT_ID slotOf(const SlotList& slots, const std::string& reader);

/// A slot list that grows with the readers. A slot stays when its reader goes, and has it again when it comes
/// back.
class DesktopSlotList final : public SlotList {
public:
    DesktopSlotList(PKCS11Wrapper* wrapper, PCSCSystem* system) : m_wrapper(wrapper), m_system(system) {}

    void update() override;

protected:
    bool waitsForReaders() const override { return true; }
    std::unique_ptr<ReaderStates> readerStates() const override;

private:
    PKCS11Wrapper* m_wrapper;
    /// Lives as long as the library object, which makes a new one with a new list.
    PCSCSystem* m_system;
};

} // namespace PKCS11
