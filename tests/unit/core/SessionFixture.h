/// A session over a token that does what the script says, with one object of each kind.
#pragma once

#include "pkcs11/core/Session.h"
#include "tests/unit/core/Fakes.h"

#include <string>
#include <utility>

namespace PKCS11 {

constexpr CK_OBJECT_HANDLE kPrivate = 1, kPublic = 2, kSecret = 3, kData = 4;

/// Code and where-text of a failure.
using Failure = std::pair<CK_RV, std::string>;

class SessionFixture : public testing::Test {
protected:
    void SetUp() override
    {
        script = Script();
        openAs(CKF_SERIAL_SESSION | CKF_RW_SESSION);
        auto& mechanisms = *session.getToken()->getMechanismList();
        mechanisms.add({CKM_RSA_PKCS, 2048, 512, ~0UL});
        mechanisms.add({CKM_SHA256_RSA_PKCS, 2048, 512, ~0UL});
        mechanisms.add({CKM_RSA_X9_31, 2048, 512, 0});
        objects().put(std::make_unique<FakePrivateKey>());
        objects().put(std::make_unique<FakePublicKey>());
        objects().put(std::make_unique<FakeSecretKey>());
        objects().put(std::make_unique<Data>());
        set(kPrivate, CKA_SIGN, CK_TRUE);
    }
    void openAs(CK_FLAGS flags) { session.openSession(&slot, 7, flags, nullptr, nullptr); }
    ObjectList& objects() { return *session.getToken()->getObjectList(); }
    Object* object(CK_OBJECT_HANDLE handle) { return objects().getObject(handle, true); }
    void set(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE_TYPE type, CK_BBOOL value)
    {
        const CK_ATTRIBUTE attribute = {type, &value, sizeof value};
        object(handle)->setAttribute(&attribute, 1);
    }
    void restart()
    {
        session.cleanMechanism();
        session.signInit(&mechanism, kPrivate);
    }
    template <class... Parameters, class... Arguments>
    Failure failureOf(void (Session::*method)(Parameters...), Arguments... arguments)
    {
        try {
            (session.*method)(arguments...);
            return {CKR_OK, ""};
        } catch (const PKCS11Exception& ex) {
            return {ex.value(), ex.where()};
        }
    }
    template <class... Parameters, class... Arguments>
    CK_RV call(void (Session::*method)(Parameters...), Arguments... arguments)
    {
        return failureOf(method, arguments...).first;
    }
    bool isActive() { return call(&Session::digestInit, nullptr) == CKR_OPERATION_ACTIVE; }

    FakeSlot slot;
    Session session;
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    CK_BYTE in[4] = {1, 2, 3, 4}, out[4] = {};
    CK_ULONG len = sizeof out;
    CK_OBJECT_HANDLE made = 0, second = 0;
};

} // namespace PKCS11
