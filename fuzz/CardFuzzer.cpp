// A life of an application, from C_Initialize to C_Finalize, on a card of one family (QUARVEL_FAMILY) whose
// answers are cut from the input: each command takes the next record. After the input the card is honest.
#include "fuzz/CardInput.h"
#include "tests/support/Application.h"
#include "tests/support/Families.h"

#include <array>

namespace {

using vcard::Bytes;

void live(Application& application)
{
    CK_TOKEN_INFO info{};
    C_GetTokenInfo(1, &info);
    std::array<CK_MECHANISM_TYPE, 20> types{};
    CK_ULONG count = types.size();
    C_GetMechanismList(1, types.data(), &count);
    if (application.open() != CKR_OK)
        return;
    const CK_SESSION_HANDLE session = application.m_session;
    const Bytes data(51, 0x5A);
    application.login("123456");
    std::array<CK_OBJECT_HANDLE, 24> found{};
    C_FindObjectsInit(session, nullptr, 0);
    C_FindObjects(session, found.data(), found.size(), &count);
    C_FindObjectsFinal(session);
    for (CK_OBJECT_HANDLE object = 1; object <= found.size(); ++object) {
        for (const CK_ATTRIBUTE_TYPE type :
             {CKA_CLASS, CKA_LABEL, CKA_ID, CKA_KEY_TYPE, CKA_MODULUS, CKA_MODULUS_BITS, CKA_PUBLIC_EXPONENT,
              CKA_EC_PARAMS, CKA_EC_POINT, CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER, CKA_VALUE,
              CKA_APPLICATION})
            if (const Bytes value = application.attribute(object, type).bytes; !value.empty())
                application.attribute(object, type, value.size());
        for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_RSA_X_509})
            for (const CK_ULONG room : {Application::kRoom, CK_ULONG{40}}) {
                application.sign(object, type, data, room);
                application.decrypt(object, type, data, room);
                application.encrypt(object, type, data, room);
                Application::require(application.verify(object, type, data, data) != CKR_OK);
            }
    }
    application.setPin("123456", "654321");
    C_Logout(session);
    application.login("123456", CKU_SO);
    application.initPin("654321");
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
    Application application;
    Application::require(C_Initialize(nullptr) == CKR_OK);
    setEduVariant(variant);
    live(application);
    Application::require(C_Finalize(nullptr) == CKR_OK && fakepcsc::open().handles == 0);
    return 0;
}
