#include "pkcs11/desktop/DesktopPIVToken.h"

#include "pkcs11/desktop/DesktopPIVKeys.h"
#include "pkcs11/desktop/HostDigest.h"

namespace PKCS11 {

namespace {

// Key sizes in bits (SP 800-78-5, table 9).
constexpr CK_ULONG kMinRsa = 1024;
constexpr CK_ULONG kMaxRsa = 4096;
constexpr CK_ULONG kMinField = 256;
constexpr CK_ULONG kMaxField = 384;

PIVKeyPair makeKeys(PIVJavaToken& token, unsigned short word, const Blob& certificate)
{
    const PIVAlgorithm algorithm = PIVAlgorithm::of(certificate);
    return {std::make_unique<DesktopPIVPublicKey>(token, word, algorithm),
            std::make_unique<DesktopPIVPrivateKey>(token, word, algorithm)};
}

} // namespace

DesktopPIVToken::DesktopPIVToken(PCSCSlot* slot) : PIVJavaToken(slot, makeKeys) {}

void DesktopPIVToken::initMechanismList()
{
    mechanisms().add({CKM_RSA_PKCS, kMaxRsa, kMinRsa, CKF_HW | CKF_DECRYPT | CKF_SIGN});
    mechanisms().add({CKM_RSA_X_509, kMaxRsa, kMinRsa, CKF_HW | CKF_DECRYPT | CKF_SIGN});
    mechanisms().add({CKM_RSA_PKCS_PSS, kMaxRsa, kMinRsa, CKF_HW | CKF_SIGN});
    mechanisms().add({CKM_ECDSA, kMaxField, kMinField,
                      CKF_HW | CKF_SIGN | CKF_EC_F_P | CKF_EC_NAMEDCURVE | CKF_EC_UNCOMPRESS});
    addHostDigests(mechanisms());
}

std::unique_ptr<Mechanism> DesktopPIVToken::createMechanismDigest(CK_MECHANISM* mechanism)
{
    return createHostDigest(mechanism->mechanism);
}

} // namespace PKCS11
