#pragma once

#include "pkcs11/drivers/piv/PIVJavaToken.h"

namespace PKCS11 {

/// A PIV card with RSA keys up to 4096 bits and EC keys on P-256 and P-384; RSA keys sign raw blocks and with
/// RSA-PSS too.
class DesktopPIVToken final : public PIVJavaToken {
public:
    explicit DesktopPIVToken(PCSCSlot* slot);

    void initMechanismList() override;

protected:
    bool takesLongChains() const override { return true; }
};

} // namespace PKCS11
