/// Framing of card data: TLV lists with padding, tag-length lists, APDUs, and a MAC.
#pragma once

#include "pkcs11/token/Blob.h"

#include <vector>

namespace PKCS11 {

/// Tag and value of one data object.
struct TagValue {
    Blob tag;
    Blob value;
};

/// A one-byte tag and the length announced for it, in bytes.
struct TagLen {
    Blob tag;
    unsigned short length = 0;
};

/// The TLV in one piece: tag, minimal definite length, value (X.690).
Blob MakeBERCoded(int tag, const Blob& value);

/// The whole TLV objects (tags 30 and A0 to AF) at the start of the input, without the padding after them.
/// An indefinite length makes the result the input unchanged. Never throws.
Blob MakeTLVCoded(const Blob& in);

/// Appends the pairs of a tag-length list: one-byte tags, one-byte lengths, or FF and two length bytes, the
/// least significant first. Never throws; a list that breaks off keeps its whole pairs.
/// Belongs to the interface; nothing in the library calls it.
void MakeTagLen(const Blob& in, std::vector<TagLen>& out);

/// Short command (ISO 7816-4, case 3S): header, Lc, data. Lc wraps at 256 bytes.
Blob GetShortAPDU(const Blob& header, const Blob& data);

/// Extended-length command (ISO 7816-4, cases 2E and 4E): header, 00, Lc in two bytes and the data if there
/// are any, Le in two bytes. Throws CKR_DATA_LEN_RANGE (0x21) for data of more than 65535 bytes.
Blob GetExtendedAPDU(const Blob& header, const Blob& data, unsigned short le);

/// CBC-MAC over single DES (ISO/IEC 9797-1 algorithm 1, zero padding) with a fixed key, the chaining value
/// starting as the key. 8 bytes; 8 zero bytes for an empty input. Belongs to the interface; nothing in the
/// library calls it.
Blob GetMAC(const Blob& in);

} // namespace PKCS11
