/// The one list of exported functions, from which the function table is made.
#pragma once

#include "pkcs11/Cryptoki.h"

/// X(name), in the order of CK_FUNCTION_LIST.
#define QUARVEL_CRYPTOKI_FUNCTIONS(X)                                                                        \
    X(Initialize)                                                                                            \
    X(Finalize)                                                                                              \
    X(GetInfo)                                                                                               \
    X(GetFunctionList)                                                                                       \
    X(GetSlotList)                                                                                           \
    X(GetSlotInfo)                                                                                           \
    X(GetTokenInfo)                                                                                          \
    X(GetMechanismList)                                                                                      \
    X(GetMechanismInfo)                                                                                      \
    X(InitToken)                                                                                             \
    X(InitPIN)                                                                                               \
    X(SetPIN)                                                                                                \
    X(OpenSession)                                                                                           \
    X(CloseSession)                                                                                          \
    X(CloseAllSessions)                                                                                      \
    X(GetSessionInfo)                                                                                        \
    X(GetOperationState)                                                                                     \
    X(SetOperationState)                                                                                     \
    X(Login)                                                                                                 \
    X(Logout)                                                                                                \
    X(CreateObject)                                                                                          \
    X(CopyObject)                                                                                            \
    X(DestroyObject)                                                                                         \
    X(GetObjectSize)                                                                                         \
    X(GetAttributeValue)                                                                                     \
    X(SetAttributeValue)                                                                                     \
    X(FindObjectsInit)                                                                                       \
    X(FindObjects)                                                                                           \
    X(FindObjectsFinal)                                                                                      \
    X(EncryptInit)                                                                                           \
    X(Encrypt)                                                                                               \
    X(EncryptUpdate)                                                                                         \
    X(EncryptFinal)                                                                                          \
    X(DecryptInit)                                                                                           \
    X(Decrypt)                                                                                               \
    X(DecryptUpdate)                                                                                         \
    X(DecryptFinal)                                                                                          \
    X(DigestInit)                                                                                            \
    X(Digest)                                                                                                \
    X(DigestUpdate)                                                                                          \
    X(DigestKey)                                                                                             \
    X(DigestFinal)                                                                                           \
    X(SignInit)                                                                                              \
    X(Sign)                                                                                                  \
    X(SignUpdate)                                                                                            \
    X(SignFinal)                                                                                             \
    X(SignRecoverInit)                                                                                       \
    X(SignRecover)                                                                                           \
    X(VerifyInit)                                                                                            \
    X(Verify)                                                                                                \
    X(VerifyUpdate)                                                                                          \
    X(VerifyFinal)                                                                                           \
    X(VerifyRecoverInit)                                                                                     \
    X(VerifyRecover)                                                                                         \
    X(DigestEncryptUpdate)                                                                                   \
    X(DecryptDigestUpdate)                                                                                   \
    X(SignEncryptUpdate)                                                                                     \
    X(DecryptVerifyUpdate)                                                                                   \
    X(GenerateKey)                                                                                           \
    X(GenerateKeyPair)                                                                                       \
    X(WrapKey)                                                                                               \
    X(UnwrapKey)                                                                                             \
    X(DeriveKey)                                                                                             \
    X(SeedRandom)                                                                                            \
    X(GenerateRandom)                                                                                        \
    X(GetFunctionStatus)                                                                                     \
    X(CancelFunction)                                                                                        \
    X(WaitForSlotEvent)

namespace PKCS11 {

/// What the library says it speaks.
constexpr CK_VERSION kCryptokiVersion{2, 11};

/// Fills the table: the version and every exported function.
void set_function_list(CK_FUNCTION_LIST& list);

} // namespace PKCS11
