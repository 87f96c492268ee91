/* The native methods of org.example.Card (Card.java): from Java to the PKCS#11 module and back.
 * docs/android.md explains it. */
#include <dlfcn.h>
#include <jni.h>
#include <p11-kit/pkcs11.h>
#include <stdio.h>

enum { LARGEST_PIN = 64, LARGEST_INPUT = 512, LARGEST_SIGNATURE = 512, SLOTS = 16 };

static CK_FUNCTION_LIST* p11;

/* The code of C_Initialize, or -1 without a module. CKR_DEVICE_ERROR: no PC/SC service, try again later. */
JNIEXPORT jlong JNICALL Java_org_example_Card_initialise(JNIEnv* env, jclass card)
{
    (void)env, (void)card;
    void* library = dlopen("libquarvel.so", RTLD_NOW);
    CK_C_GetFunctionList get = library ? (CK_C_GetFunctionList)dlsym(library, "C_GetFunctionList") : NULL;
    if (get == NULL || get(&p11) != CKR_OK)
        return -1;
    return (jlong)p11->C_Initialize(NULL);
}

/* The IDs of the slots with a card, or null. */
JNIEXPORT jlongArray JNICALL Java_org_example_Card_slotsWithCard(JNIEnv* env, jclass card)
{
    (void)card;
    CK_SLOT_ID slots[SLOTS];
    CK_ULONG count = SLOTS;
    if (p11 == NULL || p11->C_GetSlotList(CK_TRUE, slots, &count) != CKR_OK)
        return NULL;
    jlong ids[SLOTS];
    for (CK_ULONG i = 0; i < count; ++i)
        ids[i] = (jlong)slots[i]; /* 4 bytes in one ABI, 8 in the other */
    jlongArray result = (*env)->NewLongArray(env, (jsize)count);
    if (result != NULL)
        (*env)->SetLongArrayRegion(env, result, 0, (jsize)count, ids);
    return result;
}

/* Logs in and has the first RSA key sign; *length is the room, then the length of the signature. */
static CK_RV sign(CK_SLOT_ID slot, CK_BYTE* pin, CK_ULONG pinLength, CK_BYTE* data, CK_ULONG dataLength,
                  CK_BYTE* signature, CK_ULONG* length)
{
    CK_SESSION_HANDLE session;
    CK_RV rv = p11->C_OpenSession(slot, CKF_SERIAL_SESSION, NULL, NULL, &session);
    if (rv != CKR_OK)
        return rv;

    CK_OBJECT_CLASS privateKey = CKO_PRIVATE_KEY;
    CK_KEY_TYPE rsa = CKK_RSA;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &privateKey, sizeof privateKey}, {CKA_KEY_TYPE, &rsa, sizeof rsa}};
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, NULL, 0};
    CK_OBJECT_HANDLE key = 0;
    CK_ULONG found = 0;
    rv = p11->C_Login(session, CKU_USER, pin, pinLength);
    if (rv == CKR_OK)
        rv = p11->C_FindObjectsInit(session, wanted, 2);
    if (rv == CKR_OK)
        rv = p11->C_FindObjects(session, &key, 1, &found);
    if (rv == CKR_OK)
        rv = p11->C_FindObjectsFinal(session);
    if (rv == CKR_OK)
        rv = found == 1 ? p11->C_SignInit(session, &mechanism, key) : CKR_KEY_HANDLE_INVALID;
    if (rv == CKR_OK)
        rv = p11->C_Sign(session, data, dataLength, signature, length);
    p11->C_CloseSession(session); /* the last one of the slot: logs out */
    return rv;
}

/* The signature of a DigestInfo; throws an IllegalStateException with the code of the call that failed. */
JNIEXPORT jbyteArray JNICALL Java_org_example_Card_sign(JNIEnv* env, jclass card, jlong slot, jbyteArray pin,
                                                        jbyteArray digestInfo)
{
    (void)card;
    CK_BYTE pinBytes[LARGEST_PIN], data[LARGEST_INPUT], signature[LARGEST_SIGNATURE];
    CK_ULONG length = LARGEST_SIGNATURE;
    CK_RV rv = CKR_CRYPTOKI_NOT_INITIALIZED;
    const jsize pinLength = (*env)->GetArrayLength(env, pin),
                dataLength = (*env)->GetArrayLength(env, digestInfo);
    if (pinLength > LARGEST_PIN || dataLength > LARGEST_INPUT) {
        rv = CKR_DATA_LEN_RANGE;
    } else if (p11 != NULL) {
        (*env)->GetByteArrayRegion(env, pin, 0, pinLength, (jbyte*)pinBytes);
        (*env)->GetByteArrayRegion(env, digestInfo, 0, dataLength, (jbyte*)data);
        rv = sign((CK_SLOT_ID)slot, pinBytes, (CK_ULONG)pinLength, data, (CK_ULONG)dataLength, signature,
                  &length);
        for (volatile CK_BYTE* byte = pinBytes; byte < pinBytes + LARGEST_PIN; ++byte)
            *byte = 0; /* memset may be left out */
    }
    if (rv != CKR_OK) {
        char text[32];
        snprintf(text, sizeof text, "PKCS#11 code 0x%lX", rv);
        (*env)->ThrowNew(env, (*env)->FindClass(env, "java/lang/IllegalStateException"), text);
        return NULL;
    }
    jbyteArray result = (*env)->NewByteArray(env, (jsize)length);
    if (result != NULL)
        (*env)->SetByteArrayRegion(env, result, 0, (jsize)length, (jbyte*)signature);
    return result;
}
