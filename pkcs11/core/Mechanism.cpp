#include "pkcs11/core/Mechanism.h"

#include "pkcs11/PKCS11Exception.h"

namespace PKCS11 {

namespace {

// The traces of this library have always spelled these texts so.
constexpr char kNotEncrypt[] = "not an encrpyt mechanism";
constexpr char kNotDecrypt[] = "not a decrpyt mechanism";
constexpr char kNotHash[] = "not a hash mechanism";
constexpr char kNotSign[] = "not a sign mechanism";
constexpr char kNotVerify[] = "not a verify mechanism";
constexpr char kNotRandom[] = "not a random mechanism";

[[noreturn]] void refuse(const char* what)
{
    throw PKCS11Exception(CKR_MECHANISM_INVALID, what, "Mechanism");
}

} // namespace

void Mechanism::encrypt(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotEncrypt);
}

void Mechanism::encryptUpdate(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotEncrypt);
}

void Mechanism::encryptFinal(CK_BYTE*, CK_ULONG*)
{
    refuse(kNotEncrypt);
}

void Mechanism::decrypt(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotDecrypt);
}

void Mechanism::decryptUpdate(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotDecrypt);
}

void Mechanism::decryptFinal(CK_BYTE*, CK_ULONG*)
{
    refuse(kNotDecrypt);
}

void Mechanism::generateKey(CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, CK_ULONG*)
{
    refuse("not a generateKey mechanism");
}

void Mechanism::generateKeyPair(CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, CK_ATTRIBUTE*, CK_ULONG, CK_ULONG*,
                                CK_ULONG*)
{
    refuse("not a generateKeyPair mechanism");
}

void Mechanism::deriveKey(CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, Key**)
{
    refuse("not a deriveKey mechanism");
}

void Mechanism::digestInit()
{
    refuse(kNotHash);
}

void Mechanism::digest(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotHash);
}

void Mechanism::digestUpdate(CK_BYTE*, CK_ULONG)
{
    refuse(kNotHash);
}

void Mechanism::digestKey(CK_ULONG)
{
    refuse(kNotHash);
}

void Mechanism::digestFinal(CK_BYTE*, CK_ULONG*)
{
    refuse(kNotHash);
}

void Mechanism::sign(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse(kNotSign);
}

void Mechanism::signUpdate(CK_BYTE*, CK_ULONG)
{
    refuse(kNotSign);
}

void Mechanism::signFinal(CK_BYTE*, CK_ULONG*)
{
    refuse(kNotSign);
}

void Mechanism::signRecover(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*)
{
    refuse("not a signrecover mechanism");
}

void Mechanism::verify(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG)
{
    refuse(kNotVerify);
}

void Mechanism::verifyUpdate(CK_BYTE*, CK_ULONG)
{
    refuse(kNotVerify);
}

void Mechanism::verifyFinal(CK_BYTE*, CK_ULONG)
{
    refuse(kNotVerify);
}

void Mechanism::verifyRecover(CK_BYTE*, CK_ULONG*, CK_BYTE*, CK_ULONG)
{
    refuse("not a verifyrecover mechanism");
}

void Mechanism::seedRandom(CK_BYTE*, CK_ULONG)
{
    refuse(kNotRandom);
}

void Mechanism::generateRandom(CK_BYTE*, CK_ULONG)
{
    refuse(kNotRandom);
}

void MechanismSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    signUpdate(data, dataLen);
    signFinal(out, outLen);
}

void MechanismVerify::verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen)
{
    verifyUpdate(data, dataLen);
    verifyFinal(signature, signatureLen);
}

void MechanismEncrypt::encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    encryptUpdate(data, dataLen, nullptr, nullptr);
    encryptFinal(out, outLen);
}

void MechanismDecrypt::decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    decryptUpdate(data, dataLen, nullptr, nullptr);
    decryptFinal(out, outLen);
}

// The where-texts below have always been misspelled.

void MechanismKeygen::generateKeyPair(CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, CK_ATTRIBUTE*, CK_ULONG,
                                      PublicKey**, PrivateKey**)
{
    throw PKCS11Exception(CKR_VENDOR_DEFINED, "CKR_VENDOR_DEFINED", "MechansimKeygen::generateKeyPair");
}

void MechanismKeygen::generateKey(CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, SecretKey**)
{
    throw PKCS11Exception(CKR_VENDOR_DEFINED, "CKR_VENDOR_DEFINED", "MechansimKeygen::generateKey");
}

} // namespace PKCS11
