#include "pkcs11/frontend/PKCS11Wrapper.h"

#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/CallPattern.h"

namespace PKCS11 {

CK_RV PKCS11Wrapper::EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                 CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_EncryptInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.encryptInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                             CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen)
{
    return sessionCall(
        "C_Encrypt", hSession,
        {number("hSession", hSession), pointer("pData", pData), number("ulDataLen", ulDataLen),
         pointer("pEncryptedData", pEncryptedData), pointee("pulEncryptedDataLen", pulEncryptedDataLen)},
        [&](Session& session) { session.encrypt(pData, ulDataLen, pEncryptedData, pulEncryptedDataLen); },
        {pointee("pulEncryptedDataLen", pulEncryptedDataLen)});
}

CK_RV PKCS11Wrapper::EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                                   CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return sessionCall("C_EncryptUpdate", hSession,
                       {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen),
                        pointer("pEncryptedPart", pEncryptedPart),
                        pointee("pulEncryptedPartLen", pulEncryptedPartLen)},
                       [&](Session& session) {
                           session.encryptUpdate(pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
                       },
                       {pointee("pulEncryptedPartLen", pulEncryptedPartLen)});
}

CK_RV PKCS11Wrapper::EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                                  CK_ULONG_PTR pulLastEncryptedPartLen)
{
    return sessionCall(
        "C_EncryptFinal", hSession,
        {number("hSession", hSession), pointer("pLastEncryptedPart", pLastEncryptedPart),
         pointee("pulLastEncryptedPartLen", pulLastEncryptedPartLen)},
        [&](Session& session) { session.encryptFinal(pLastEncryptedPart, pulLastEncryptedPartLen); },
        {pointee("pulLastEncryptedPartLen", pulLastEncryptedPartLen)});
}

CK_RV PKCS11Wrapper::DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                 CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_DecryptInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.decryptInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
                             CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen)
{
    return sessionCall(
        "C_Decrypt", hSession,
        {number("hSession", hSession), pointer("pEncryptedData", pEncryptedData),
         number("ulEncryptedDataLen", ulEncryptedDataLen), pointer("pData", pData),
         pointee("pulDataLen", pulDataLen)},
        [&](Session& session) { session.decrypt(pEncryptedData, ulEncryptedDataLen, pData, pulDataLen); },
        {pointee("pulDataLen", pulDataLen)});
}

CK_RV PKCS11Wrapper::DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                                   CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    return sessionCall("C_DecryptUpdate", hSession,
                       {number("hSession", hSession), pointer("pEncryptedPart", pEncryptedPart),
                        number("ulEncryptedPartLen", ulEncryptedPartLen), pointer("pPart", pPart),
                        pointee("pulPartLen", pulPartLen)},
                       [&](Session& session) {
                           session.decryptUpdate(pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
                       },
                       {pointee("pulPartLen", pulPartLen)});
}

CK_RV PKCS11Wrapper::DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart,
                                  CK_ULONG_PTR pulLastPartLen)
{
    return sessionCall("C_DecryptFinal", hSession,
                       {number("hSession", hSession), pointer("pLastPart", pLastPart),
                        pointee("pulLastPartLen", pulLastPartLen)},
                       [&](Session& session) { session.decryptFinal(pLastPart, pulLastPartLen); },
                       {pointee("pulLastPartLen", pulLastPartLen)});
}

CK_RV PKCS11Wrapper::DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism)
{
    return sessionCall("C_DigestInit", hSession, {number("hSession", hSession), mechanism(pMechanism)},
                       [&](Session& session) { session.digestInit(pMechanism); });
}

CK_RV PKCS11Wrapper::Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                            CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen)
{
    return sessionCall("C_Digest", hSession,
                       {number("hSession", hSession), pointer("pData", pData), number("ulDataLen", ulDataLen),
                        pointer("pDigest", pDigest), pointee("pulDigestLen", pulDigestLen)},
                       [&](Session& session) { session.digest(pData, ulDataLen, pDigest, pulDigestLen); },
                       {pointee("pulDigestLen", pulDigestLen)});
}

CK_RV PKCS11Wrapper::DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return sessionCall(
        "C_DigestUpdate", hSession,
        {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen)},
        [&](Session& session) { session.digestUpdate(pPart, ulPartLen); });
}

CK_RV PKCS11Wrapper::DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey)
{
    return answer("C_DigestKey", {number("hSession", hSession), number("hKey", hKey)},
                  CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV PKCS11Wrapper::DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen)
{
    return sessionCall(
        "C_DigestFinal", hSession,
        {number("hSession", hSession), pointer("pDigest", pDigest), pointee("pulDigestLen", pulDigestLen)},
        [&](Session& session) { session.digestFinal(pDigest, pulDigestLen); },
        {pointee("pulDigestLen", pulDigestLen)});
}

CK_RV PKCS11Wrapper::SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_SignInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.signInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                          CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen)
{
    return sessionCall("C_Sign", hSession,
                       {number("hSession", hSession), pointer("pData", pData), number("ulDataLen", ulDataLen),
                        pointer("pSignature", pSignature), pointee("pulSignatureLen", pulSignatureLen)},
                       [&](Session& session) { session.sign(pData, ulDataLen, pSignature, pulSignatureLen); },
                       {pointee("pulSignatureLen", pulSignatureLen)});
}

CK_RV PKCS11Wrapper::SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return sessionCall(
        "C_SignUpdate", hSession,
        {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen)},
        [&](Session& session) { session.signUpdate(pPart, ulPartLen); });
}

CK_RV PKCS11Wrapper::SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                               CK_ULONG_PTR pulSignatureLen)
{
    return sessionCall("C_SignFinal", hSession,
                       {number("hSession", hSession), pointer("pSignature", pSignature),
                        pointee("pulSignatureLen", pulSignatureLen)},
                       [&](Session& session) { session.signFinal(pSignature, pulSignatureLen); },
                       {pointee("pulSignatureLen", pulSignatureLen)});
}

CK_RV PKCS11Wrapper::SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                     CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_SignRecoverInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.signInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                                 CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen)
{
    return sessionCall("C_SignRecover", hSession,
                       {number("hSession", hSession), pointer("pData", pData), number("ulDataLen", ulDataLen),
                        pointer("pSignature", pSignature), pointee("pulSignatureLen", pulSignatureLen)},
                       [&](Session& session) { session.sign(pData, ulDataLen, pSignature, pulSignatureLen); },
                       {pointee("pulSignatureLen", pulSignatureLen)});
}

CK_RV PKCS11Wrapper::VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_VerifyInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.verifyInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                            CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen)
{
    return sessionCall(
        "C_Verify", hSession,
        {number("hSession", hSession), pointer("pData", pData), number("ulDataLen", ulDataLen),
         pointer("pSignature", pSignature), number("ulSignatureLen", ulSignatureLen)},
        [&](Session& session) { session.verify(pData, ulDataLen, pSignature, ulSignatureLen); });
}

CK_RV PKCS11Wrapper::VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return sessionCall(
        "C_VerifyUpdate", hSession,
        {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen)},
        [&](Session& session) { session.verifyUpdate(pPart, ulPartLen); });
}

CK_RV PKCS11Wrapper::VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen)
{
    return sessionCall("C_VerifyFinal", hSession,
                       {number("hSession", hSession), pointer("pSignature", pSignature),
                        number("ulSignatureLen", ulSignatureLen)},
                       [&](Session& session) { session.verifyFinal(pSignature, ulSignatureLen); });
}

CK_RV PKCS11Wrapper::VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                       CK_OBJECT_HANDLE hKey)
{
    return sessionCall("C_VerifyRecoverInit", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hKey", hKey)},
                       [&](Session& session) { session.verifyRecoverInit(pMechanism, hKey); });
}

CK_RV PKCS11Wrapper::VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                                   CK_ULONG ulSignatureLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen)
{
    return sessionCall(
        "C_VerifyRecover", hSession,
        {number("hSession", hSession), pointer("pSignature", pSignature),
         number("ulSignatureLen", ulSignatureLen), pointer("pData", pData),
         pointee("pulDataLen", pulDataLen)},
        [&](Session& session) { session.verifyRecover(pSignature, ulSignatureLen, pData, pulDataLen); },
        {pointee("pulDataLen", pulDataLen)});
}

CK_RV PKCS11Wrapper::DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                                         CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return answer("C_DigestEncryptUpdate",
                  {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen),
                   pointer("pEncryptedPart", pEncryptedPart),
                   pointee("pulEncryptedPartLen", pulEncryptedPartLen)},
                  CKR_FUNCTION_NOT_SUPPORTED, {pointee("pulEncryptedPartLen", pulEncryptedPartLen)});
}

CK_RV PKCS11Wrapper::DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                                         CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                                         CK_ULONG_PTR pulPartLen)
{
    return answer("C_DecryptDigestUpdate",
                  {number("hSession", hSession), pointer("pEncryptedPart", pEncryptedPart),
                   number("ulEncryptedPartLen", ulEncryptedPartLen), pointer("pPart", pPart),
                   pointee("pulPartLen", pulPartLen)},
                  CKR_FUNCTION_NOT_SUPPORTED, {pointee("pulPartLen", pulPartLen)});
}

CK_RV PKCS11Wrapper::SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                                       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return answer("C_SignEncryptUpdate",
                  {number("hSession", hSession), pointer("pPart", pPart), number("ulPartLen", ulPartLen),
                   pointer("pEncryptedPart", pEncryptedPart),
                   pointee("pulEncryptedPartLen", pulEncryptedPartLen)},
                  CKR_FUNCTION_NOT_SUPPORTED, {pointee("pulEncryptedPartLen", pulEncryptedPartLen)});
}

CK_RV PKCS11Wrapper::DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                                         CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                                         CK_ULONG_PTR pulPartLen)
{
    return answer("C_DecryptVerifyUpdate",
                  {number("hSession", hSession), pointer("pEncryptedPart", pEncryptedPart),
                   number("ulEncryptedPartLen", ulEncryptedPartLen), pointer("pPart", pPart),
                   pointee("pulPartLen", pulPartLen)},
                  CKR_FUNCTION_NOT_SUPPORTED, {pointee("pulPartLen", pulPartLen)});
}

CK_RV PKCS11Wrapper::GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                 CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return sessionCall("C_GenerateKey", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), attributes(pTemplate, ulCount),
                        pointer("phKey", phKey)},
                       [&](Session& session) { session.generateKey(pMechanism, pTemplate, ulCount, phKey); },
                       {pointee("phKey", phKey)});
}

CK_RV PKCS11Wrapper::GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                     CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                                     CK_ATTRIBUTE_PTR pPrivateKeyTemplate,
                                     CK_ULONG ulPrivateKeyAttributeCount, CK_OBJECT_HANDLE_PTR phPublicKey,
                                     CK_OBJECT_HANDLE_PTR phPrivateKey)
{
    return sessionCall("C_GenerateKeyPair", hSession,
                       {number("hSession", hSession), mechanism(pMechanism),
                        attributes(pPublicKeyTemplate, ulPublicKeyAttributeCount),
                        attributes(pPrivateKeyTemplate, ulPrivateKeyAttributeCount),
                        pointer("phPublicKey", phPublicKey), pointer("phPrivateKey", phPrivateKey)},
                       [&](Session& session) {
                           session.generateKeyPair(pMechanism, pPublicKeyTemplate, ulPublicKeyAttributeCount,
                                                   pPrivateKeyTemplate, ulPrivateKeyAttributeCount,
                                                   phPublicKey, phPrivateKey);
                       },
                       {pointee("phPublicKey", phPublicKey), pointee("phPrivateKey", phPrivateKey)});
}

CK_RV PKCS11Wrapper::WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                             CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey,
                             CK_ULONG_PTR pulWrappedKeyLen)
{
    return sessionCall("C_WrapKey", hSession,
                       {number("hSession", hSession), mechanism(pMechanism),
                        number("hWrappingKey", hWrappingKey), number("hKey", hKey),
                        pointer("pWrappedKey", pWrappedKey), pointee("pulWrappedKeyLen", pulWrappedKeyLen)},
                       [&](Session& session) {
                           session.WrapKey(pMechanism, hWrappingKey, hKey, pWrappedKey, pulWrappedKeyLen);
                       },
                       {pointee("pulWrappedKeyLen", pulWrappedKeyLen)});
}

CK_RV PKCS11Wrapper::UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                               CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,
                               CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                               CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return sessionCall("C_UnwrapKey", hSession,
                       {number("hSession", hSession), mechanism(pMechanism),
                        number("hUnwrappingKey", hUnwrappingKey), pointer("pWrappedKey", pWrappedKey),
                        number("ulWrappedKeyLen", ulWrappedKeyLen), attributes(pTemplate, ulAttributeCount),
                        pointer("phKey", phKey)},
                       [&](Session& session) {
                           session.UnwrapKey(pMechanism, hUnwrappingKey, pWrappedKey, ulWrappedKeyLen,
                                             pTemplate, ulAttributeCount, phKey);
                       },
                       {pointee("phKey", phKey)});
}

CK_RV PKCS11Wrapper::DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                               CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate,
                               CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return sessionCall("C_DeriveKey", hSession,
                       {number("hSession", hSession), mechanism(pMechanism), number("hBaseKey", hBaseKey),
                        attributes(pTemplate, ulAttributeCount), pointer("phKey", phKey)},
                       [&](Session& session) {
                           session.deriveKey(pMechanism, hBaseKey, pTemplate, ulAttributeCount, phKey);
                       },
                       {pointee("phKey", phKey)});
}

} // namespace PKCS11
