#pragma once

#include "pkcs11/pcsc/PCSCSystem.h"

namespace PKCS11 {

/// True for the PC/SC results after which a context is worth nothing: the service is not there, or another
/// one than the one that knew it.
bool isContextLost(long result);

/// A PC/SC context that comes when the service does, and is renewed when the service was restarted. Readers
/// that the service does not know are empty.
class DesktopSystem final : public PCSCSystem {
public:
    DesktopSystem();

    std::vector<std::string> listReaders() override;
    long readState(const std::string& reader, ReaderState& state) override;

private:
    /// False when the service is not there.
    bool renew();
};

} // namespace PKCS11
