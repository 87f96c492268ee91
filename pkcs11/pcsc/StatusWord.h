/// ISO 7816-4 status words as the transport returns them: SW1 in the high byte, SW2 in the low byte.
#pragma once

namespace PKCS11 {

enum StatusWord : int {
    SW_EOF_REACHED = 0x6282, ///< end of file reached before Le bytes
    SW_WRONG_LENGTH = 0x6700,
    SW_PIN_BLOCKED = 0x6983,
    SW_REFERENCE_DATA_UNUSABLE = 0x6984,
    SW_INCORRECT_P1P2 = 0x6A86,
    SW_OFFSET_OUTSIDE_EF = 0x6B00,
    SW_SUCCESS = 0x9000,
    SW_SUCCESS_9001 = 0x9001, ///< PIV applets: success after an internal retry
};

constexpr int sw1(int sw)
{
    return sw >> 8 & 0xFF;
}
constexpr unsigned char sw2(int sw)
{
    return static_cast<unsigned char>(sw & 0xFF);
}
/// 61xx: xx bytes of the answer wait for GET RESPONSE.
constexpr bool hasMoreData(int sw)
{
    return sw1(sw) == 0x61;
}
/// A SELECT or key operation that succeeded, or whose answer waits.
constexpr bool isAccepted(int sw)
{
    return sw == SW_SUCCESS || sw == SW_SUCCESS_9001 || hasMoreData(sw);
}
/// 6Cxx: the right Le is xx.
constexpr bool isWrongLe(int sw)
{
    return sw1(sw) == 0x6C;
}
/// 6Axx: the card has no such file, directory or key there.
constexpr bool isNotThere(int sw)
{
    return sw1(sw) == 0x6A;
}
/// An error (64xx and above, but 90xx): what comes with it is no result.
constexpr bool isError(int sw)
{
    return sw1(sw) >= 0x64 && sw1(sw) != 0x90;
}
/// The card compared the PIN, or refuses to: wrong (63xx), blocked, unusable.
constexpr bool isPinRefused(int sw)
{
    return sw1(sw) == 0x63 || sw == SW_PIN_BLOCKED || sw == SW_REFERENCE_DATA_UNUSABLE;
}

} // namespace PKCS11
