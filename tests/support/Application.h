/// What an application does through the C_ functions with one card, for tests, fuzzers and benchmarks.
#pragma once

#include "pkcs11/frontend/SystemWrapper.h"
#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/Bytes.h"
#include "util/CryptoPointer.h"

#include <memory>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <stdexcept>

class Application {
public:
    using Bytes = vcard::Bytes;

    /// What a call with an output gave. `bytes` is empty after a failure; `length` is the output length then
    /// too.
    struct Outcome {
        CK_RV rv = CKR_OK;
        Bytes bytes;
        CK_ULONG length = 0;
    };
    static constexpr CK_ULONG kRoom = 1024;

    /// Initialises the library with one reader that holds the card, and opens a read/write session.
    void start(const std::shared_ptr<vcard::Card>& card)
    {
        m_reader = fakepcsc::addReader("Reader 0");
        fakepcsc::insertCard(m_reader, card);
        require(C_Initialize(nullptr) == CKR_OK && open() == CKR_OK);
    }
    static void require(bool condition)
    {
        if (!condition)
            throw std::runtime_error("the library did not do what it must");
    }
    CK_RV open()
    {
        return C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &m_session);
    }
    CK_RV login(const std::string& pin, CK_USER_TYPE user = CKU_USER)
    {
        Bytes bytes = vcard::fromText(pin);
        return C_Login(m_session, user, bytes.data(), bytes.size());
    }
    CK_RV setPin(const std::string& oldPin, const std::string& newPin)
    {
        Bytes from = vcard::fromText(oldPin);
        Bytes to = vcard::fromText(newPin);
        return C_SetPIN(m_session, from.data(), from.size(), to.data(), to.size());
    }
    CK_RV initPin(const std::string& pin)
    {
        Bytes bytes = vcard::fromText(pin);
        return C_InitPIN(m_session, bytes.data(), bytes.size());
    }
    CK_TOKEN_INFO tokenInfo()
    {
        CK_TOKEN_INFO info{};
        require(C_GetTokenInfo(1, &info) == CKR_OK);
        return info;
    }

    /// All objects that the template matches, in the order of the search.
    std::vector<CK_OBJECT_HANDLE> findAll(std::vector<CK_ATTRIBUTE> wanted = {})
    {
        std::vector<CK_OBJECT_HANDLE> handles(100);
        CK_ULONG count = 0;
        require(C_FindObjectsInit(m_session, wanted.data(), wanted.size()) == CKR_OK &&
                C_FindObjects(m_session, handles.data(), handles.size(), &count) == CKR_OK &&
                C_FindObjectsFinal(m_session) == CKR_OK);
        handles.resize(count);
        return handles;
    }
    /// The object of the class with this number among its kind, 0 when there is none.
    CK_OBJECT_HANDLE find(CK_OBJECT_CLASS objectClass, size_t number = 0)
    {
        const auto handles = findAll({{CKA_CLASS, &objectClass, sizeof objectClass}});
        return number < handles.size() ? handles[number] : 0;
    }
    Outcome attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, size_t length = 8192)
    {
        Bytes room(length);
        CK_ATTRIBUTE wanted{type, room.data(), room.size()};
        const CK_RV rv = C_GetAttributeValue(m_session, object, &wanted, 1);
        return outcome(rv, room, wanted.ulValueLen);
    }
    std::string text(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
    {
        const Bytes bytes = attribute(object, type).bytes;
        return {bytes.begin(), bytes.end()};
    }
    /// A boolean or a number.
    CK_ULONG number(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
    {
        const Bytes bytes = attribute(object, type).bytes;
        CK_ULONG value = 0;
        if (bytes.size() == sizeof value)
            std::copy(bytes.begin(), bytes.end(), reinterpret_cast<unsigned char*>(&value));
        return bytes.size() == 1 ? bytes[0] : value;
    }

    // Init and single-part call; `room` is what the output buffer holds.
    Outcome sign(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, const Bytes& data, CK_ULONG room = kRoom)
    {
        return sign(key, CK_MECHANISM{type, nullptr, 0}, data, room);
    }
    Outcome sign(CK_OBJECT_HANDLE key, CK_MECHANISM mechanism, const Bytes& data, CK_ULONG room = kRoom)
    {
        return run(C_SignInit, C_Sign, key, mechanism, data, room);
    }
    Outcome decrypt(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, const Bytes& data, CK_ULONG room = kRoom)
    {
        return run(C_DecryptInit, C_Decrypt, key, {type, nullptr, 0}, data, room);
    }
    Outcome encrypt(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, const Bytes& data, CK_ULONG room = kRoom)
    {
        return run(C_EncryptInit, C_Encrypt, key, {type, nullptr, 0}, data, room);
    }
    CK_RV verify(CK_OBJECT_HANDLE key, CK_MECHANISM_TYPE type, Bytes data, Bytes signature)
    {
        CK_MECHANISM mechanism{type, nullptr, 0};
        const CK_RV rv = C_VerifyInit(m_session, &mechanism, key);
        return rv != CKR_OK
                   ? rv
                   : C_Verify(m_session, data.data(), data.size(), signature.data(), signature.size());
    }

    using PublicKeyHandle = CryptoPointer<EVP_PKEY, EVP_PKEY_free>;
    /// The public key of a DER certificate.
    static PublicKeyHandle publicKeyOf(const Bytes& certificate)
    {
        const unsigned char* at = certificate.data();
        const CryptoPointer<X509, X509_free> x509(
            d2i_X509(nullptr, &at, static_cast<long>(certificate.size())));
        return PublicKeyHandle(x509 ? X509_get_pubkey(x509.get()) : nullptr);
    }
    /// libcrypto's verdict on a PKCS#1 v1.5 signature over data that stand in the block as they are.
    static bool isSignature(const PublicKeyHandle& key, const Bytes& data, const Bytes& signature)
    {
        const Context context = contextOf(key);
        return EVP_PKEY_verify_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
               EVP_PKEY_verify(context.get(), signature.data(), signature.size(), data.data(), data.size()) ==
                   1;
    }
    /// A message for the owner of the key, encrypted by libcrypto.
    static Bytes encryptFor(const PublicKeyHandle& key, const Bytes& plain, int padding = RSA_PKCS1_PADDING)
    {
        const Context context = contextOf(key);
        Bytes out(kRoom);
        size_t length = out.size();
        const bool done =
            EVP_PKEY_encrypt_init(context.get()) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1 &&
            EVP_PKEY_encrypt(context.get(), out.data(), &length, plain.data(), plain.size()) == 1;
        out.resize(done ? length : 0);
        return out;
    }

    using Context = CryptoPointer<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
    static Context contextOf(const PublicKeyHandle& key)
    {
        return Context(EVP_PKEY_CTX_new(key.get(), nullptr));
    }

    /// SEQUENCE { SEQUENCE { sha256, NULL }, OCTET STRING } (PKCS#1)
    const Bytes m_digestInfo =
        vcard::join({vcard::fromHex("3031300D060960864801650304020105000420"), Bytes(32, 0x5A)});
    int m_reader = 0;
    CK_SESSION_HANDLE m_session = 0;

private:
    static Outcome outcome(CK_RV rv, Bytes room, CK_ULONG length)
    {
        require(rv != CKR_OK || length <= room.size());
        room.resize(rv == CKR_OK ? length : 0);
        return {rv, room, length};
    }
    template <class Init, class Step>
    Outcome run(Init init, Step step, CK_OBJECT_HANDLE key, CK_MECHANISM mechanism, Bytes data,
                CK_ULONG length)
    {
        CK_RV rv = init(m_session, &mechanism, key);
        if (rv != CKR_OK)
            return {rv, {}, 0};
        Bytes room(std::max<CK_ULONG>(length, 1)); // never null: that would ask for the length
        rv = step(m_session, data.data(), data.size(), room.data(), &length);
        return outcome(rv, room, length);
    }
};
