#pragma once

#include "pkcs11/ReferenceCounter.h"
#include "pkcs11/token/Blob.h"

#include <string>
#include <vector>

namespace PKCS11 {

/// SCARDCONTEXT, SCARDHANDLE and DWORD under names of our own: no header includes winscard.h but
/// ReaderStates.h.
using PCSCContext = long;
using PCSCHandle = long;
using PCSCWord = unsigned long;

/// What PC/SC tells about a reader: its SCARD_STATE_ bits, and the ATR of the card in it.
struct ReaderState {
    PCSCWord events = 0;
    Blob atr;
};

/// The names of the readers that are attached now, in the order of PC/SC; none when it cannot tell. The PC/SC
/// result.
long queryReaders(PCSCContext context, std::vector<std::string>& names);

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
    /// What queryReaders() tells in the library's context; none when PC/SC cannot tell.
    virtual std::vector<std::string> listReaders();
    /// The present state of a reader, without a channel to its card. The PC/SC result.
    virtual long readState(const std::string& reader, ReaderState& state);

protected:
    struct WithoutContext {};
    explicit PCSCSystem(WithoutContext);
    /// Throws CKR_DEVICE_ERROR (0x30) when no valid context can be had.
    void establish();

    PCSCContext m_context = 0;

private:
    const int m_process;
};

/// A system with one reference that the caller owns. The name is not used. Throws what the constructor
/// throws.
PCSCSystem* CreatePCSCSystem(const char* name);

} // namespace PKCS11
