#include "pkcs11/drivers/acos/AcosMechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

// The byte after 84 01 is the key reference.
constexpr char kMseSetSignature[] = "002241a406840100800101";
constexpr char kMseSetDecryption[] = "002281b803840100";
constexpr int kKeyReferencePosition = 7;

constexpr char kInternalAuthenticate[] = "00881000";
constexpr char kPsoDecipher[] = "002a8086";
constexpr unsigned char kPaddingIndicator = 0x00;

void setSecurityEnvironment(AcosToken& token, const char* command, const AcosKeyAccess& access)
{
    Blob mse = PKCS11_hex2blob(command);
    mse.at(kKeyReferencePosition) = access.reference;
    requireSuccess(token.card().SendCmd(mse));
}

/// The key's answer to the command on the field. `prepare` selects, and shows the cached PIN.
template <class Prepare>
Blob compute(AcosToken& token, const AcosKeyAccess& access, Prepare prepare, const char* environment,
             const char* command, const Blob& field)
{
    return token.whole([&] {
        prepare();
        setSecurityEnvironment(token, environment, access);
        Blob answer;
        requireSuccess(token.card().Send(PKCS11_hex2blob(command), field, 0, answer));
        return answer;
    });
}

/// Failures of the operation get its where-text, if the family gives it to all of them.
template <class Operation>
void named(const AcosKeyAccess& access, Operation operation)
{
    try {
        operation();
    } catch (const PKCS11Exception& failure) {
        if (!access.namesFailures || *failure.where() != '\0')
            throw;
        throw PKCS11Exception(failure.value(), failure.what(), access.where);
    }
}

} // namespace

void AcosMechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kAcosAnnouncedLength))
        return;
    named(m_access, [&] {
        m_token.requireLogin(m_access.where);
        const Blob input =
            m_access.signWrapsLc ? inputOf(data, dataLen) : inputOf(data, dataLen, kMaxShortData);
        requireRoom(outLen, m_knownLength);
        const Blob signature = compute(
            m_token, m_access, [this] { m_token.prepareKeyOperation(); }, kMseSetSignature,
            kInternalAuthenticate, input);
        deliver(signature, out, outLen);
    });
}

void AcosMechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kAcosAnnouncedLength))
        return;
    named(m_access, [&] {
        m_token.requireLogin(m_access.where);
        // The padding indicator takes one of the 255 bytes.
        Blob field(1, kPaddingIndicator);
        field.append(inputOf(data, dataLen, kMaxShortData - 1));
        const auto prepare = [this] {
            m_token.prepareKeyOperation();
            requireKey();
        };
        Blob plaintext = compute(m_token, m_access, prepare, kMseSetDecryption, kPsoDecipher, field);
        if (m_type != CKM_RSA_PKCS && !(m_access.decryptsRaw && m_type == CKM_RSA_X_509))
            plaintext.wipe();
        deliver(plaintext, out, outLen);
    });
}

} // namespace PKCS11
