#include "pkcs11/frontend/trace/Names.h"

#include "pkcs11/frontend/trace/NameTable.h"

#include <cstddef>
#include <cstring>

namespace PKCS11 {

namespace {

constexpr Name kReturnValues[] = {
    PKCS11_NAMED(CKR_OK),
    PKCS11_NAMED(CKR_CANCEL),
    PKCS11_NAMED(CKR_HOST_MEMORY),
    PKCS11_NAMED(CKR_SLOT_ID_INVALID),
    PKCS11_NAMED(CKR_GENERAL_ERROR),
    PKCS11_NAMED(CKR_FUNCTION_FAILED),
    PKCS11_NAMED(CKR_ARGUMENTS_BAD),
    PKCS11_NAMED(CKR_NO_EVENT),
    PKCS11_NAMED(CKR_NEED_TO_CREATE_THREADS),
    PKCS11_NAMED(CKR_CANT_LOCK),
    PKCS11_NAMED(CKR_ATTRIBUTE_READ_ONLY),
    PKCS11_NAMED(CKR_ATTRIBUTE_SENSITIVE),
    PKCS11_NAMED(CKR_ATTRIBUTE_TYPE_INVALID),
    PKCS11_NAMED(CKR_ATTRIBUTE_VALUE_INVALID),
    PKCS11_NAMED(CKR_DATA_INVALID),
    PKCS11_NAMED(CKR_DATA_LEN_RANGE),
    PKCS11_NAMED(CKR_DEVICE_ERROR),
    PKCS11_NAMED(CKR_DEVICE_MEMORY),
    PKCS11_NAMED(CKR_DEVICE_REMOVED),
    PKCS11_NAMED(CKR_ENCRYPTED_DATA_INVALID),
    PKCS11_NAMED(CKR_ENCRYPTED_DATA_LEN_RANGE),
    PKCS11_NAMED(CKR_FUNCTION_CANCELED),
    PKCS11_NAMED(CKR_FUNCTION_NOT_PARALLEL),
    PKCS11_NAMED(CKR_FUNCTION_NOT_SUPPORTED),
    PKCS11_NAMED(CKR_KEY_HANDLE_INVALID),
    PKCS11_NAMED(CKR_KEY_SIZE_RANGE),
    PKCS11_NAMED(CKR_KEY_TYPE_INCONSISTENT),
    PKCS11_NAMED(CKR_KEY_NOT_NEEDED),
    PKCS11_NAMED(CKR_KEY_CHANGED),
    PKCS11_NAMED(CKR_KEY_NEEDED),
    PKCS11_NAMED(CKR_KEY_INDIGESTIBLE),
    PKCS11_NAMED(CKR_KEY_FUNCTION_NOT_PERMITTED),
    PKCS11_NAMED(CKR_KEY_NOT_WRAPPABLE),
    PKCS11_NAMED(CKR_KEY_UNEXTRACTABLE),
    PKCS11_NAMED(CKR_MECHANISM_INVALID),
    PKCS11_NAMED(CKR_MECHANISM_PARAM_INVALID),
    PKCS11_NAMED(CKR_OBJECT_HANDLE_INVALID),
    PKCS11_NAMED(CKR_OPERATION_ACTIVE),
    PKCS11_NAMED(CKR_OPERATION_NOT_INITIALIZED),
    PKCS11_NAMED(CKR_PIN_INCORRECT),
    PKCS11_NAMED(CKR_PIN_INVALID),
    PKCS11_NAMED(CKR_PIN_LEN_RANGE),
    PKCS11_NAMED(CKR_PIN_EXPIRED),
    PKCS11_NAMED(CKR_PIN_LOCKED),
    PKCS11_NAMED(CKR_SESSION_CLOSED),
    PKCS11_NAMED(CKR_SESSION_COUNT),
    PKCS11_NAMED(CKR_SESSION_HANDLE_INVALID),
    PKCS11_NAMED(CKR_SESSION_PARALLEL_NOT_SUPPORTED),
    PKCS11_NAMED(CKR_SESSION_READ_ONLY),
    PKCS11_NAMED(CKR_SESSION_EXISTS),
    PKCS11_NAMED(CKR_SESSION_READ_ONLY_EXISTS),
    PKCS11_NAMED(CKR_SESSION_READ_WRITE_SO_EXISTS),
    PKCS11_NAMED(CKR_SIGNATURE_INVALID),
    PKCS11_NAMED(CKR_SIGNATURE_LEN_RANGE),
    PKCS11_NAMED(CKR_TEMPLATE_INCOMPLETE),
    PKCS11_NAMED(CKR_TEMPLATE_INCONSISTENT),
    PKCS11_NAMED(CKR_TOKEN_NOT_PRESENT),
    PKCS11_NAMED(CKR_TOKEN_NOT_RECOGNIZED),
    PKCS11_NAMED(CKR_TOKEN_WRITE_PROTECTED),
    PKCS11_NAMED(CKR_UNWRAPPING_KEY_HANDLE_INVALID),
    PKCS11_NAMED(CKR_UNWRAPPING_KEY_SIZE_RANGE),
    PKCS11_NAMED(CKR_UNWRAPPING_KEY_TYPE_INCONSISTENT),
    PKCS11_NAMED(CKR_USER_ALREADY_LOGGED_IN),
    PKCS11_NAMED(CKR_USER_NOT_LOGGED_IN),
    PKCS11_NAMED(CKR_USER_PIN_NOT_INITIALIZED),
    PKCS11_NAMED(CKR_USER_TYPE_INVALID),
    PKCS11_NAMED(CKR_USER_ANOTHER_ALREADY_LOGGED_IN),
    PKCS11_NAMED(CKR_USER_TOO_MANY_TYPES),
    PKCS11_NAMED(CKR_WRAPPED_KEY_INVALID),
    PKCS11_NAMED(CKR_WRAPPED_KEY_LEN_RANGE),
    PKCS11_NAMED(CKR_WRAPPING_KEY_HANDLE_INVALID),
    PKCS11_NAMED(CKR_WRAPPING_KEY_SIZE_RANGE),
    PKCS11_NAMED(CKR_WRAPPING_KEY_TYPE_INCONSISTENT),
    PKCS11_NAMED(CKR_RANDOM_SEED_NOT_SUPPORTED),
    PKCS11_NAMED(CKR_RANDOM_NO_RNG),
    PKCS11_NAMED(CKR_BUFFER_TOO_SMALL),
    PKCS11_NAMED(CKR_SAVED_STATE_INVALID),
    PKCS11_NAMED(CKR_INFORMATION_SENSITIVE),
    PKCS11_NAMED(CKR_STATE_UNSAVEABLE),
    PKCS11_NAMED(CKR_CRYPTOKI_NOT_INITIALIZED),
    PKCS11_NAMED(CKR_CRYPTOKI_ALREADY_INITIALIZED),
    PKCS11_NAMED(CKR_MUTEX_BAD),
    PKCS11_NAMED(CKR_MUTEX_NOT_LOCKED),
};

constexpr Name kAttributeTypes[] = {
    PKCS11_NAMED(CKA_CLASS),
    PKCS11_NAMED(CKA_TOKEN),
    PKCS11_NAMED(CKA_PRIVATE),
    PKCS11_NAMED(CKA_LABEL),
    PKCS11_NAMED(CKA_APPLICATION),
    PKCS11_NAMED(CKA_VALUE),
    PKCS11_NAMED(CKA_CERTIFICATE_TYPE),
    PKCS11_NAMED(CKA_ISSUER),
    PKCS11_NAMED(CKA_SERIAL_NUMBER),
    PKCS11_NAMED(CKA_KEY_TYPE),
    PKCS11_NAMED(CKA_SUBJECT),
    PKCS11_NAMED(CKA_ID),
    PKCS11_NAMED(CKA_SENSITIVE),
    PKCS11_NAMED(CKA_ENCRYPT),
    PKCS11_NAMED(CKA_DECRYPT),
    PKCS11_NAMED(CKA_WRAP),
    PKCS11_NAMED(CKA_UNWRAP),
    PKCS11_NAMED(CKA_SIGN),
    PKCS11_NAMED(CKA_SIGN_RECOVER),
    PKCS11_NAMED(CKA_VERIFY),
    PKCS11_NAMED(CKA_VERIFY_RECOVER),
    PKCS11_NAMED(CKA_DERIVE),
    PKCS11_NAMED(CKA_START_DATE),
    PKCS11_NAMED(CKA_END_DATE),
    PKCS11_NAMED(CKA_MODULUS),
    PKCS11_NAMED(CKA_MODULUS_BITS),
    PKCS11_NAMED(CKA_PUBLIC_EXPONENT),
    PKCS11_NAMED(CKA_PRIVATE_EXPONENT),
    PKCS11_NAMED(CKA_PRIME_1),
    PKCS11_NAMED(CKA_PRIME_2),
    PKCS11_NAMED(CKA_EXPONENT_1),
    PKCS11_NAMED(CKA_EXPONENT_2),
    PKCS11_NAMED(CKA_COEFFICIENT),
    PKCS11_NAMED(CKA_PRIME),
    PKCS11_NAMED(CKA_SUBPRIME),
    PKCS11_NAMED(CKA_BASE),
    PKCS11_NAMED(CKA_VALUE_BITS),
    PKCS11_NAMED(CKA_VALUE_LEN),
    PKCS11_NAMED(CKA_EXTRACTABLE),
    PKCS11_NAMED(CKA_LOCAL),
    PKCS11_NAMED(CKA_NEVER_EXTRACTABLE),
    PKCS11_NAMED(CKA_ALWAYS_SENSITIVE),
    PKCS11_NAMED(CKA_MODIFIABLE),
    PKCS11_NAMED(CKA_EC_PARAMS),
    PKCS11_NAMED(CKA_EC_POINT),
    PKCS11_NAMED(CKA_VENDOR_NETSCAPE_NAME),
};

constexpr Name kObjectClasses[] = {
    PKCS11_NAMED(CKO_DATA),        PKCS11_NAMED(CKO_CERTIFICATE), PKCS11_NAMED(CKO_PUBLIC_KEY),
    PKCS11_NAMED(CKO_PRIVATE_KEY), PKCS11_NAMED(CKO_SECRET_KEY),
};

constexpr Name kKeyTypes[] = {
    {CKK_RSA, "RSA"},         {CKK_DSA, "DSA"},           {CKK_DH, "DH"},
    {CKK_EC, "ECDSA"},        {CKK_KEA, "KEA"},           {CKK_GENERIC_SECRET, "GENERIC SECRET"},
    {CKK_RC2, "RC2"},         {CKK_RC4, "RC4"},           {CKK_DES, "DES"},
    {CKK_DES2, "DES2"},       {CKK_DES3, "DES3"},         {CKK_CAST, "CAST"},
    {CKK_CAST3, "CAST3"},     {CKK_CAST128, "CAST128"},   {CKK_RC5, "RC5"},
    {CKK_IDEA, "IDEA"},       {CKK_SKIPJACK, "SKIPJACK"}, {CKK_BATON, "BATON"},
    {CKK_JUNIPER, "JUNIPER"}, {CKK_CDMF, "CDMF"},
};

constexpr Name kCertificateTypes[] = {{CKC_X_509, "X_509"}};

constexpr Name kSessionStates[] = {
    PKCS11_NAMED(CKS_RO_PUBLIC_SESSION), PKCS11_NAMED(CKS_RO_USER_FUNCTIONS),
    PKCS11_NAMED(CKS_RW_PUBLIC_SESSION), PKCS11_NAMED(CKS_RW_USER_FUNCTIONS),
    PKCS11_NAMED(CKS_RW_SO_FUNCTIONS),
};

constexpr Name kUserTypes[] = {PKCS11_NAMED(CKU_SO), PKCS11_NAMED(CKU_USER)};

constexpr Name kSessionFlags[] = {PKCS11_NAMED(CKF_RW_SESSION), PKCS11_NAMED(CKF_SERIAL_SESSION)};

constexpr Name kSlotFlags[] = {PKCS11_NAMED(CKF_TOKEN_PRESENT), PKCS11_NAMED(CKF_REMOVABLE_DEVICE),
                               PKCS11_NAMED(CKF_HW_SLOT)};

constexpr Name kTokenFlags[] = {
    PKCS11_NAMED(CKF_RNG),
    PKCS11_NAMED(CKF_WRITE_PROTECTED),
    PKCS11_NAMED(CKF_LOGIN_REQUIRED),
    PKCS11_NAMED(CKF_USER_PIN_INITIALIZED),
    PKCS11_NAMED(CKF_RESTORE_KEY_NOT_NEEDED),
    PKCS11_NAMED(CKF_CLOCK_ON_TOKEN),
    PKCS11_NAMED(CKF_PROTECTED_AUTHENTICATION_PATH),
    PKCS11_NAMED(CKF_DUAL_CRYPTO_OPERATIONS),
};

constexpr Name kMechanismFlags[] = {
    PKCS11_NAMED(CKF_HW),       PKCS11_NAMED(CKF_ENCRYPT),
    PKCS11_NAMED(CKF_DECRYPT),  PKCS11_NAMED(CKF_DIGEST),
    PKCS11_NAMED(CKF_SIGN),     PKCS11_NAMED(CKF_SIGN_RECOVER),
    PKCS11_NAMED(CKF_VERIFY),   PKCS11_NAMED(CKF_VERIFY_RECOVER),
    PKCS11_NAMED(CKF_GENERATE), PKCS11_NAMED(CKF_GENERATE_KEY_PAIR),
    PKCS11_NAMED(CKF_WRAP),     PKCS11_NAMED(CKF_UNWRAP),
    PKCS11_NAMED(CKF_DERIVE),
};

constexpr char kMask[] = "[-------------------------------------------------]";
constexpr char kTooLong[] = "wrong datalen";
constexpr unsigned long kMaxShownBytes = 4096;

template <std::size_t N>
const char* nameOrEmpty(const Name (&names)[N], unsigned long number) noexcept
{
    const char* text = findName(names, number);
    return text != nullptr ? text : "";
}

template <std::size_t N>
std::string joinFlags(const Name (&names)[N], unsigned long flags, const std::string& prefix,
                      const std::string& suffix)
{
    std::string text;
    for (const Name& name : names) {
        if ((flags & name.number) != 0)
            text += prefix + name.text + suffix;
    }
    if (!text.empty())
        text.resize(text.size() - suffix.size());
    return text;
}

void appendHex(std::string& text, unsigned char byte)
{
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
}

/// The text of a number; empty where the value is too short to be one.
template <class ToText>
std::string numberText(const CK_ATTRIBUTE& attribute, ToText toText)
{
    unsigned long value = 0;
    if (attribute.ulValueLen < sizeof(value))
        return {};
    std::memcpy(&value, attribute.pValue, sizeof(value));
    return toText(value);
}

} // namespace

const char* rvName(unsigned long rv) noexcept
{
    return nameOrEmpty(kReturnValues, rv);
}

std::string rv2string_ne(unsigned long rv)
{
    return rvName(rv);
}

std::string attributeType2string_ne(unsigned long type)
{
    return nameOrEmpty(kAttributeTypes, type);
}

std::string objectClass2string_ne(unsigned long objectClass)
{
    return nameOrEmpty(kObjectClasses, objectClass);
}

std::string keyType2string_ne(unsigned long type)
{
    return nameOrEmpty(kKeyTypes, type);
}

std::string certificateType2string_ne(unsigned long type)
{
    return nameOrEmpty(kCertificateTypes, type);
}

std::string sessionState2string_ne(unsigned long state)
{
    return nameOrEmpty(kSessionStates, state);
}

std::string sessionUsertype2string_ne(unsigned long userType)
{
    return nameOrEmpty(kUserTypes, userType);
}

std::string bbool2string(unsigned char value)
{
    return value != 0 ? "TRUE" : "FALSE";
}

std::string version2string(CK_VERSION version)
{
    return std::to_string(version.major) + "." + std::to_string(version.minor);
}

std::string number2string(unsigned long value)
{
    return std::to_string(static_cast<int>(value));
}

std::string byte2hex(unsigned char byte)
{
    std::string text;
    appendHex(text, byte);
    return text;
}

std::string byte2hex(const unsigned char* bytes, unsigned long length)
{
    if (length > kMaxShownBytes)
        return kTooLong;
    std::string text;
    text.reserve(2 * length);
    for (unsigned long i = 0; i < length; ++i)
        appendHex(text, bytes[i]);
    return text;
}

std::string byte2string(const unsigned char* bytes, unsigned long length)
{
    if (length > kMaxShownBytes)
        return kTooLong;
    return {bytes, bytes + length};
}

std::string attributevalue2string_ne(CK_ATTRIBUTE attribute)
{
    if (attribute.pValue == nullptr)
        return "NULL";
    const auto* bytes = static_cast<const unsigned char*>(attribute.pValue);
    switch (attribute.type) {
    case CKA_CLASS:
        return numberText(attribute, objectClass2string_ne);
    case CKA_TOKEN:
    case CKA_PRIVATE:
    case CKA_SENSITIVE:
    case CKA_ENCRYPT:
    case CKA_DECRYPT:
    case CKA_WRAP:
    case CKA_UNWRAP:
    case CKA_SIGN:
    case CKA_SIGN_RECOVER:
    case CKA_VERIFY:
    case CKA_VERIFY_RECOVER:
    case CKA_DERIVE:
    case CKA_EXTRACTABLE:
    case CKA_LOCAL:
    case CKA_NEVER_EXTRACTABLE:
    case CKA_ALWAYS_SENSITIVE:
    case CKA_MODIFIABLE:
        return attribute.ulValueLen == 0 ? std::string() : bbool2string(*bytes);
    case CKA_LABEL:
    case CKA_APPLICATION:
    case CKA_VENDOR_NETSCAPE_NAME:
        return '"' + byte2string(bytes, attribute.ulValueLen) + '"';
    case CKA_CERTIFICATE_TYPE:
        return numberText(attribute, certificateType2string_ne);
    case CKA_KEY_TYPE:
        return numberText(attribute, keyType2string_ne);
    case CKA_ISSUER:
    case CKA_SERIAL_NUMBER:
    case CKA_SUBJECT:
    case CKA_ID:
    case CKA_START_DATE:
    case CKA_END_DATE:
    case CKA_MODULUS:
    case CKA_PUBLIC_EXPONENT:
        return "0x" + byte2hex(bytes, attribute.ulValueLen);
    case CKA_MODULUS_BITS:
    case CKA_VALUE_BITS:
    case CKA_VALUE_LEN:
        return numberText(attribute, number2string);
    default:
        return kMask;
    }
}

std::string sessionFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix)
{
    return joinFlags(kSessionFlags, flags, prefix, suffix);
}

std::string tokenFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix)
{
    return joinFlags(kTokenFlags, flags, prefix, suffix);
}

std::string slotFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix)
{
    return joinFlags(kSlotFlags, flags, prefix, suffix);
}

std::string mechanismFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix)
{
    return joinFlags(kMechanismFlags, flags, prefix, suffix);
}

} // namespace PKCS11
