/// What the library knows about cards before it talks to them: application identifiers, card-type words and
/// the table of historical bytes.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// Application identifiers as hexadecimal text.
extern const char PIV_AID[];
extern const char IAS_APPLET_AID[];
extern const char IAS_PKCS15_AID[];
extern const char SAGEM_IAS_GENERIC_AID[];

constexpr unsigned short IAS_EF_DIR = 0x2F00;
constexpr unsigned short EF_TOKEN_INFO_FID = 0x5032;
constexpr unsigned short EF_ODF_FID = 0x5031;
/// Named, never read.
constexpr char ATR_LIST_FILE[] = "TARV_ATR_List.ini";

/// Card-type words.
constexpr char kPIVCard[] = "PIV_CARD";
constexpr char kPIVCACCard[] = "PIV_CAC_CARD";
constexpr char kCardOSCard[] = "CARDOS_CARD";
constexpr char kATrustCard[] = "A-TRUST_CARD";
constexpr char kEDUCard[] = "EDU_CARD";
constexpr char kIASCard[] = "IAS_CARD";
constexpr char kActivIdentityCard[] = "ACTIV_IDENTITY_CARD";

/// Historical bytes of an ATR (ISO/IEC 7816-3, 8.2); those that exist when the ATR is cut short.
Blob getHistoricalBytes(const Blob& atr);

/// A row of the ATR table: historical bytes as hexadecimal text, vendor or operating system, card-type word.
struct ATRTableRow {
    const char* historicalBytes;
    const char* os;
    const char* cardType;
};
/// The row whose pattern equals the historical bytes or begins with them, the first one in table order; null
/// when none does. Never matches empty historical bytes.
const ATRTableRow* findATRTableRow(const Blob& historicalBytes);

} // namespace PKCS11
