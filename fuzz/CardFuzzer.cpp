// A life of an application, from C_Initialize to C_Finalize, on a card of one family (QUARVEL_FAMILY) whose
// answers are cut from the input: each command takes the next record. Behind the input the card is honest.
#include "fuzz/CardInput.h"
#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tests/fakepcsc/FakePCSC.h"

#include <array>

namespace {

using fuzz::require;
using vcard::Bytes;

/// Init and single-part call, first for the length, then into exactly that room.
template <class Init, class Step>
void use(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, Init init, Step step)
{
    CK_MECHANISM mechanism{type, nullptr, 0};
    Bytes input(51, 0x5A);
    CK_ULONG length = 0;
    if (init(session, &mechanism, key) != CKR_OK ||
        step(session, input.data(), input.size(), nullptr, &length) != CKR_OK)
        return;
    const CK_ULONG room = std::min<CK_ULONG>(length, 4096);
    Bytes output(room + 1);
    length = room;
    const CK_RV rv = step(session, input.data(), input.size(), output.data(), &length);
    require(rv != CKR_OK || length <= room);
}
void readAll(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object)
{
    for (const CK_ATTRIBUTE_TYPE type :
         {CKA_CLASS, CKA_LABEL, CKA_ID, CKA_KEY_TYPE, CKA_MODULUS, CKA_MODULUS_BITS, CKA_PUBLIC_EXPONENT,
          CKA_EC_PARAMS, CKA_EC_POINT, CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER, CKA_VALUE,
          CKA_APPLICATION}) {
        CK_ATTRIBUTE wanted{type, nullptr, 0};
        if (C_GetAttributeValue(session, object, &wanted, 1) != CKR_OK)
            continue;
        Bytes room(wanted.ulValueLen + 1);
        wanted.pValue = room.data();
        require(C_GetAttributeValue(session, object, &wanted, 1) != CKR_OK ||
                wanted.ulValueLen < room.size());
    }
}
void live()
{
    CK_TOKEN_INFO info{};
    C_GetTokenInfo(1, &info);
    std::array<CK_MECHANISM_TYPE, 20> types{};
    CK_ULONG count = types.size();
    C_GetMechanismList(1, types.data(), &count);
    CK_SESSION_HANDLE session = 0;
    if (C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session) != CKR_OK)
        return;
    Bytes pin = vcard::fromText("123456");
    Bytes other = vcard::fromText("654321");
    C_Login(session, CKU_USER, pin.data(), pin.size());
    std::array<CK_OBJECT_HANDLE, 24> found{};
    C_FindObjectsInit(session, nullptr, 0);
    C_FindObjects(session, found.data(), found.size(), &count);
    C_FindObjectsFinal(session);
    for (CK_OBJECT_HANDLE object = 1; object <= found.size(); ++object) {
        readAll(session, object);
        for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_RSA_X_509}) {
            use(session, object, type, C_SignInit, C_Sign);
            use(session, object, type, C_DecryptInit, C_Decrypt);
            use(session, object, type, C_EncryptInit, C_Encrypt);
            CK_MECHANISM mechanism{type, nullptr, 0};
            if (C_VerifyInit(session, &mechanism, object) == CKR_OK)
                require(C_Verify(session, pin.data(), pin.size(), other.data(), other.size()) != CKR_OK);
        }
    }
    C_SetPIN(session, pin.data(), pin.size(), other.data(), other.size());
    C_Logout(session);
    C_Login(session, CKU_SO, pin.data(), pin.size());
    C_InitPIN(session, other.data(), other.size());
    C_CloseSession(session);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    fuzz::Reader input(data, size);
    const int variant = input.byte() % 3;
    fakepcsc::reset();
    SystemWrapper::s_logPath = "/dev/null"; // what the trace shows is looked at too
    fakepcsc::insertCard(fakepcsc::addReader("Reader"),
                         std::make_shared<fuzz::LyingCard>(QUARVEL_FAMILY, input));
    require(C_Initialize(nullptr) == CKR_OK);
    dynamic_cast<PKCS11::PCSCSlot&>(*wrapper.slots()->getSlot(1)).setEduVariant(variant);
    live();
    require(C_Finalize(nullptr) == CKR_OK);
    require(fakepcsc::open().handles == 0);
    return 0;
}
