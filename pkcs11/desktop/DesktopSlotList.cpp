#include "pkcs11/desktop/DesktopSlotList.h"

#include "pkcs11/desktop/DesktopReaderStates.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <utility>
#include <winscard.h>

namespace PKCS11 {

void DesktopSlotList::update()
{
    for (const std::string& reader : m_system->listReaders()) {
        if (slotOf(*this, reader) != 0)
            continue;
        addSlot(std::make_unique<PCSCSlot>(m_wrapper, m_system, reader.c_str()));
        // A card in a reader that came later is an event.
        getSlot(highWater())->setEventPending(!m_hasBegun);
        getSlot(highWater())->setReaderState(SCARD_STATE_EMPTY);
    }
    m_hasBegun = true;
}

CK_SLOT_ID slotOf(const SlotList& slots, const std::string& reader)
{
    for (CK_SLOT_ID id = 1; id <= slots.highWater(); ++id) {
        if (slots.getSlot(id)->GetName() == reader)
            return id;
    }
    return 0;
}

std::unique_ptr<ReaderStates> DesktopSlotList::readerStates()
{
    std::vector<std::string> readers;
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id)
        readers.push_back(getSlot(id)->GetName());
    return std::make_unique<DesktopReaderStates>(std::move(readers), m_told);
}

bool DesktopSlotList::isEvent(PCSCWord before, PCSCWord now) const
{
    const bool isEvent = SlotList::isEvent(before, now);
    return isEvent || ((before & now & SCARD_STATE_PRESENT) != 0 && before >> 16 != now >> 16);
}

CK_SLOT_ID DesktopSlotList::findEvent(ReaderStates& states, bool block)
{
    CK_SLOT_ID event = block ? findChanged(states) : 0;
    if (event == 0)
        event = findFlagged(states);
    if (event == 0)
        return block ? states.attachedSlot(*this) : 0;
    getSlot(event)->setEventPending(false);
    getSlot(event)->setReaderState(states.eventState(event));
    return event;
}

} // namespace PKCS11
