#pragma once

#include "pkcs11/pcsc/ReaderStates.h"

#include <map>
#include <set>

namespace PKCS11 {

/// The readers of a wait that goes on without some of them, and without the PC/SC service, and that has news
/// of readers without a slot. A reader that the service does not know is in the state SCARD_STATE_UNKNOWN.
class DesktopReaderStates final : public ReaderStates {
public:
    /// `told` are the readers without a slot that were reported already. It belongs to the slot list, and is
    /// looked at when the wait begins and in attachedSlot() only: others may wait meanwhile.
    DesktopReaderStates(std::vector<std::string> readers, std::set<std::string>& told);

    long getStatusChange(WaitContext& wait, PCSCWord timeout) override;
    CK_SLOT_ID attachedSlot(const SlotList& slots) override;

private:
    /// Asks for the readers that are there now. False without a service.
    bool look(WaitContext& wait);
    bool isPresent(std::size_t index) const;
    SCARD_READERSTATE& stateOf(const std::string& name);
    /// Asks PC/SC for the states of the readers that are there, and for its notification of others.
    long askPCSC(WaitContext& wait, PCSCWord timeout);
    /// True when a reader with a slot has come back or gone, or when there is news of one without: PC/SC does
    /// not count that as a change.
    bool hasNews() const;
    /// Sets the states of readers that are not there, and marks those that went or came back; true when there
    /// is a change.
    bool markChanges();
    bool isNews(const std::string& name) const;

    std::vector<std::string> m_present;
    /// The states of the readers that had no slot when the wait began.
    std::map<std::string, SCARD_READERSTATE> m_others;
    /// Those of them whose card came or went.
    std::set<std::string> m_changed;
    std::set<std::string>& m_told;
    /// Those that were told when the wait began, and have been there ever since.
    std::set<std::string> m_toldBefore;
};

} // namespace PKCS11
