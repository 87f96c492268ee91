#include "pkcs11/desktop/DesktopSlotList.h"

#include "pkcs11/desktop/DesktopReaderStates.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <utility>

namespace PKCS11 {

void DesktopSlotList::update()
{
    for (const std::string& reader : m_system->listReaders()) {
        if (slotOf(*this, reader) == 0)
            addSlot(std::make_unique<PCSCSlot>(m_wrapper, m_system, reader.c_str()));
    }
}

CK_SLOT_ID slotOf(const SlotList& slots, const std::string& reader)
{
    for (CK_SLOT_ID id = 1; id <= slots.highWater(); ++id) {
        if (slots.getSlot(id)->GetName() == reader)
            return id;
    }
    return 0;
}

std::unique_ptr<ReaderStates> DesktopSlotList::readerStates() const
{
    std::vector<std::string> readers;
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id)
        readers.push_back(getSlot(id)->GetName());
    return std::make_unique<DesktopReaderStates>(std::move(readers));
}

} // namespace PKCS11
