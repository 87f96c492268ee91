/// The one list of exported functions. Exports and function table are made from it, so that neither can miss
/// one.
#pragma once

#include "pkcs11/Cryptoki.h"

/// X(name, number of parameters, PKCS11::OnEscape), in the order of CK_FUNCTION_LIST.
#define QUARVEL_CRYPTOKI_FUNCTIONS(X)                                                                        \
    X(Initialize, 1, Keeps)                                                                                  \
    X(Finalize, 1, Keeps)                                                                                    \
    X(GetInfo, 1, Keeps)                                                                                     \
    X(GetFunctionList, 1, Keeps)                                                                             \
    X(GetSlotList, 3, Keeps)                                                                                 \
    X(GetSlotInfo, 2, Keeps)                                                                                 \
    X(GetTokenInfo, 2, Keeps)                                                                                \
    X(GetMechanismList, 3, Keeps)                                                                            \
    X(GetMechanismInfo, 3, Keeps)                                                                            \
    X(InitToken, 4, Keeps)                                                                                   \
    X(InitPIN, 3, Keeps)                                                                                     \
    X(SetPIN, 5, Keeps)                                                                                      \
    X(OpenSession, 5, Keeps)                                                                                 \
    X(CloseSession, 1, Keeps)                                                                                \
    X(CloseAllSessions, 1, Keeps)                                                                            \
    X(GetSessionInfo, 2, Keeps)                                                                              \
    X(GetOperationState, 3, Keeps)                                                                           \
    X(SetOperationState, 5, Keeps)                                                                           \
    X(Login, 4, Keeps)                                                                                       \
    X(Logout, 1, Keeps)                                                                                      \
    X(CreateObject, 4, Keeps)                                                                                \
    X(CopyObject, 5, Keeps)                                                                                  \
    X(DestroyObject, 2, Keeps)                                                                               \
    X(GetObjectSize, 3, Keeps)                                                                               \
    X(GetAttributeValue, 4, Keeps)                                                                           \
    X(SetAttributeValue, 4, Keeps)                                                                           \
    X(FindObjectsInit, 3, Keeps)                                                                             \
    X(FindObjects, 4, Keeps)                                                                                 \
    X(FindObjectsFinal, 1, Keeps)                                                                            \
    X(EncryptInit, 3, DropsOperation)                                                                        \
    X(Encrypt, 5, DropsOperation)                                                                            \
    X(EncryptUpdate, 5, DropsOperation)                                                                      \
    X(EncryptFinal, 3, DropsOperation)                                                                       \
    X(DecryptInit, 3, DropsOperation)                                                                        \
    X(Decrypt, 5, DropsOperation)                                                                            \
    X(DecryptUpdate, 5, DropsOperation)                                                                      \
    X(DecryptFinal, 3, DropsOperation)                                                                       \
    X(DigestInit, 2, DropsOperation)                                                                         \
    X(Digest, 5, DropsOperation)                                                                             \
    X(DigestUpdate, 3, DropsOperation)                                                                       \
    X(DigestKey, 2, DropsOperation)                                                                          \
    X(DigestFinal, 3, DropsOperation)                                                                        \
    X(SignInit, 3, DropsOperation)                                                                           \
    X(Sign, 5, DropsOperation)                                                                               \
    X(SignUpdate, 3, DropsOperation)                                                                         \
    X(SignFinal, 3, DropsOperation)                                                                          \
    X(SignRecoverInit, 3, DropsOperation)                                                                    \
    X(SignRecover, 5, DropsOperation)                                                                        \
    X(VerifyInit, 3, DropsOperation)                                                                         \
    X(Verify, 5, DropsOperation)                                                                             \
    X(VerifyUpdate, 3, DropsOperation)                                                                       \
    X(VerifyFinal, 3, DropsOperation)                                                                        \
    X(VerifyRecoverInit, 3, DropsOperation)                                                                  \
    X(VerifyRecover, 5, DropsOperation)                                                                      \
    X(DigestEncryptUpdate, 5, DropsOperation)                                                                \
    X(DecryptDigestUpdate, 5, DropsOperation)                                                                \
    X(SignEncryptUpdate, 5, DropsOperation)                                                                  \
    X(DecryptVerifyUpdate, 5, DropsOperation)                                                                \
    X(GenerateKey, 5, DropsOperation)                                                                        \
    X(GenerateKeyPair, 8, DropsOperation)                                                                    \
    X(WrapKey, 6, DropsOperation)                                                                            \
    X(UnwrapKey, 8, DropsOperation)                                                                          \
    X(DeriveKey, 6, DropsOperation)                                                                          \
    X(SeedRandom, 3, Keeps)                                                                                  \
    X(GenerateRandom, 3, Keeps)                                                                              \
    X(GetFunctionStatus, 1, Keeps)                                                                           \
    X(CancelFunction, 1, Keeps)                                                                              \
    X(WaitForSlotEvent, 3, Keeps)

namespace PKCS11 {

/// What a function does to its session's operation when an exception escapes its method.
enum class OnEscape { Keeps, DropsOperation };

/// Fills the table: version 2.11 and every exported function.
void set_function_list(CK_FUNCTION_LIST& list);

} // namespace PKCS11
