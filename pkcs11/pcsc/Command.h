/// What the commands of all cards have in common (ISO/IEC 7816-4).
#pragma once

namespace PKCS11 {

/// Most bytes of data in one command, whose Lc has one byte.
constexpr int kMaxShortData = 255;
/// Class byte of each command of a chain but the last.
constexpr unsigned char kChained = 0x10;

/// SELECT by DF name, which answers with FCI.
constexpr char kSelectByName[] = "00a40400";
/// SELECT of the MF, without an answer.
constexpr char kSelectMFNoResponse[] = "00a4000c023f00";

/// Where READ BINARY has its offset: P1 and P2.
constexpr int kOffsetPosition = 2;
/// It tells offsets below this one, in 15 bits; with the bit above it is another kind of command.
constexpr int kOffsetLimit = 0x8000;

} // namespace PKCS11
