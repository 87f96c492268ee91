/* sign MODULE FILE SIGNATURE: asks for the PIN, has the first RSA key of the first card sign the SHA-256
 * of the file (PKCS#1 v1.5), and writes the signature. docs/applications/c.md explains it. */
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

static void need(int good, const char* what)
{
    if (!good) {
        fprintf(stderr, "sign: %s\n", what);
        exit(1);
    }
}

static void succeed(CK_RV rv, const char* call)
{
    if (rv != CKR_OK)
        fprintf(stderr, "sign: %s gives 0x%lX\n", call, rv);
    need(rv == CKR_OK, "no signature");
}

/* A line from standard input, without echo where that is a terminal. */
static void read_pin(char* pin, int size)
{
    struct termios shown = {0};
    tcgetattr(STDIN_FILENO, &shown);
    struct termios hidden = shown;
    hidden.c_lflag &= ~(tcflag_t)ECHO;
    fputs("PIN: ", stderr);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    need(fgets(pin, size, stdin) != NULL, "no PIN");
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
    pin[strcspn(pin, "\n")] = 0;
}

static void hash_file(const char* path, unsigned char* hash)
{
    unsigned char part[4096];
    size_t length;
    FILE* file = fopen(path, "rb");
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    need(file && context && EVP_DigestInit_ex(context, EVP_sha256(), NULL), path);
    while ((length = fread(part, 1, sizeof part, file)) > 0)
        EVP_DigestUpdate(context, part, length);
    need(!ferror(file) && EVP_DigestFinal_ex(context, hash, NULL), path);
    EVP_MD_CTX_free(context);
    fclose(file);
}

int main(int argc, char** argv)
{
    need(argc == 4, "usage: sign MODULE FILE SIGNATURE");
    void* module = dlopen(argv[1], RTLD_NOW);
    CK_C_GetFunctionList get = NULL;
    *(void**)&get = module ? dlsym(module, "C_GetFunctionList") : NULL;
    need(get != NULL, "that is no PKCS#11 module");
    CK_FUNCTION_LIST* p11 = NULL;
    succeed(get(&p11), "C_GetFunctionList");
    succeed(p11->C_Initialize(NULL), "C_Initialize");

    CK_SLOT_ID slots[16];
    CK_ULONG count = 16;
    succeed(p11->C_GetSlotList(CK_TRUE, slots, &count), "C_GetSlotList");
    need(count > 0, "no card");
    CK_SESSION_HANDLE session = 0;
    succeed(p11->C_OpenSession(slots[0], CKF_SERIAL_SESSION, NULL, NULL, &session), "C_OpenSession");
    char pin[64];
    read_pin(pin, sizeof pin);
    CK_RV rv = p11->C_Login(session, CKU_USER, (unsigned char*)pin, strlen(pin));
    OPENSSL_cleanse(pin, sizeof pin);
    succeed(rv, "C_Login");

    CK_OBJECT_CLASS private_key = CKO_PRIVATE_KEY;
    CK_KEY_TYPE rsa = CKK_RSA;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &private_key, sizeof private_key}, {CKA_KEY_TYPE, &rsa, sizeof rsa}};
    CK_OBJECT_HANDLE key = 0;
    succeed(p11->C_FindObjectsInit(session, wanted, 2), "C_FindObjectsInit");
    succeed(p11->C_FindObjects(session, &key, 1, &count), "C_FindObjects");
    need(count == 1, "no RSA key");
    p11->C_FindObjectsFinal(session);

    /* DER: SEQUENCE { SEQUENCE { sha256, NULL }, OCTET STRING of 32 bytes }, up to the hash. */
    unsigned char data[51] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                              0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
    hash_file(argv[2], data + 19);
    unsigned char signature[1024];
    CK_ULONG length = sizeof signature;
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, NULL, 0};
    succeed(p11->C_SignInit(session, &mechanism, key), "C_SignInit");
    succeed(p11->C_Sign(session, data, sizeof data, signature, &length), "C_Sign");
    FILE* out = fopen(argv[3], "wb");
    need(out && fwrite(signature, 1, length, out) == length && fclose(out) == 0, argv[3]);
    return p11->C_Finalize(NULL) == CKR_OK ? 0 : 1;
}
