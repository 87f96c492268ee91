#pragma once

#include "pkcs11/ReferenceCounter.h"

#include <string>
#include <vector>

namespace PKCS11 {

/// SCARDCONTEXT, SCARDHANDLE and DWORD under names of our own: winscard.h stays inside this folder.
using PCSCContext = long;
using PCSCHandle = long;
using PCSCWord = unsigned long;

/// The library's PC/SC context. The library object holds one reference, each PCSCSlot another. In a process
/// forked from the one that made it, it is the parent's: nothing of it is then released.
class PCSCSystem : public ReferenceCounter {
public:
    /// Throws CKR_DEVICE_ERROR (0x30) when no valid context can be had.
    PCSCSystem();
    ~PCSCSystem() override;

    virtual const char* GetName() const { return "PCSC"; }
    virtual PCSCContext GetContext() const { return m_context; }
    /// True in a forked child.
    bool isInherited() const;
    /// The names of the readers that are attached now, in the order of PC/SC; none when it cannot tell.
    std::vector<std::string> listReaders() const;

private:
    PCSCContext m_context = 0;
    const int m_process;
};

/// A system with one reference that the caller owns. The name is not used. Throws what the constructor
/// throws.
PCSCSystem* CreatePCSCSystem(const char* name);

} // namespace PKCS11
