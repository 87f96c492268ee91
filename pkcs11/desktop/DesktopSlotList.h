#pragma once

#include "pkcs11/pcsc/SlotList.h"

#include <set>
#include <string>

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
    std::unique_ptr<ReaderStates> readerStates() override;
    /// A card that was exchanged is an event too.
    bool isEvent(PCSCWord before, PCSCWord now) const override;
    /// What happened since the last wait counts too, and so does news of readers without a slot for a wait
    /// that blocks.
    CK_SLOT_ID findEvent(ReaderStates& states, bool block) override;

private:
    PKCS11Wrapper* m_wrapper;
    /// The library object's, which replaces it together with this list.
    PCSCSystem* m_system;
    bool m_hasBegun = false;
    /// The readers without a slot that a wait has reported.
    std::set<std::string> m_told;
};

} // namespace PKCS11
