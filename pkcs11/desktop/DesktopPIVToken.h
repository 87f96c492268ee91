#pragma once

#include "pkcs11/drivers/piv/PIVJavaToken.h"

namespace PKCS11 {

/// A PIV card with RSA keys up to 4096 bits and EC keys on P-256 and P-384; RSA keys sign raw blocks and with
/// RSA-PSS too. Hashes are computed by the library.
class DesktopPIVToken final : public PIVJavaToken {
public:
    explicit DesktopPIVToken(PCSCSlot* slot);

    void initMechanismList() override;
    std::unique_ptr<Mechanism> createMechanismDigest(CK_MECHANISM* mechanism) override;

protected:
    bool takesLongChains() const override { return true; }
};

} // namespace PKCS11
