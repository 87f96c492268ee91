#include "pkcs11/drivers/atrust/AcosTRUSTMechanisms.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

constexpr char kMseSetEncryption[] = "002281b803830188";
constexpr char kPsoEncipher[] = "002a8680";

// Signing reports the decryption's name, deliberately; card failures carry no texts.
constexpr char kWhere[] = "AcosTRUSTMechanismDecrypt::decrypt";

constexpr AcosKeyAccess keyAccess()
{
    AcosKeyAccess access{0x88, kWhere};
    access.signWrapsLc = true;
    return access;
}

} // namespace

AcosTRUSTMechanismSign::AcosTRUSTMechanismSign(AcosTRUSTToken& token, int knownLength)
    : AcosMechanismSign(token, keyAccess(), knownLength)
{
}

AcosTRUSTMechanismDecrypt::AcosTRUSTMechanismDecrypt(AcosTRUSTToken& token, unsigned short fid,
                                                     CK_MECHANISM_TYPE type)
    : AcosMechanismDecrypt(token, keyAccess(), type), m_fid(fid)
{
}

void AcosTRUSTMechanismDecrypt::requireKey() const
{
    if (m_fid != EF_PK_CH_EKEY)
        throw PKCS11Exception(CKR_MECHANISM_INVALID);
}

void ATRUSTMechanismEncrypt::encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, kAcosAnnouncedLength))
        return;
    const Blob input = inputOf(data, dataLen);
    requireRoom(outLen, m_knownLength);
    const Blob answer = m_token.whole([&] {
        m_token.prepareKeyOperation();
        if (m_fid != EF_PK_CH_EKEY) // names the decryption's class, deliberately
            throw PKCS11Exception(CKR_MECHANISM_INVALID, "", "AcosTRUSTMechanismDecrypt::encrypt");
        requireSuccess(m_token.card().SendCmd(PKCS11_hex2blob(kMseSetEncryption)));
        // Data of more than 255 bytes wrap the Lc: the card decides.
        Blob ciphertext;
        if (m_token.card().Send(PKCS11_hex2blob(kPsoEncipher), input, 0, ciphertext) != SW_SUCCESS)
            throw PKCS11Exception(CKR_MECHANISM_INVALID);
        return ciphertext;
    });
    // The first byte is the padding indicator.
    deliver(answer.slice(1), out, outLen);
}

} // namespace PKCS11
