/// PKCS#1 v1.5 blocks (RFC 8017, 8.2 and 7.2), built and removed on the host.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// 00, block type, FF filler, 00, data: `size` bytes, or more where the data leave room for fewer than
/// `minFiller` bytes of filler.
Blob makePKCS1Block(unsigned char blockType, const Blob& data, int size, int minFiller = 0);

/// What follows the first 00 byte after the block's start, where a leading 00 is passed over; everything
/// after the start byte when there is no such 00.
Blob stripPKCS1Block(const Blob& block);

} // namespace PKCS11
