/// The certificate containers of a PIV card (NIST SP 800-73-4, part 1, appendix A) and what stands in them.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// A certificate container, the key that belongs to it, and their names.
struct PIVContainer {
    /// Last byte of the data object's tag 5F C1 xx.
    unsigned char tag;
    unsigned char keyReference;
    const char* keyLabel;
    const char* certificateLabel;
};

/// In the order in which they are read.
constexpr PIVContainer kPIVContainers[] = {
    {0x05, 0x9A, "PIV Authentication Key", "PIV Authentication Certificate"},
    {0x0A, 0x9C, "Digital Signature Key", "Digital Signature Certificate"},
    {0x0B, 0x9D, "Key Management Key", "Key Management Certificate"},
    {0x01, 0x9E, "Card Authentication Key", "Card Authentication Certificate"},
};

/// A key reference word: the key reference in the high byte, the algorithm identifier in the low one.
/// RSA 1024 gives 06, any other modulus length 07, as does 0 for a key that is not RSA; an unknown container
/// tag gives the word 0.
unsigned short getKeyRef(unsigned char tag, int modulusBits);
/// The two bytes of the word.
Blob getKeyID(unsigned short word);

/// The content of the answer to GET DATA: the value under tag 53 or 7E. Empty for any other answer. A value
/// that BER decoding refuses is cut out by hand, at most as much as there is.
Blob cutContainer(const Blob& answer);

/// What a container holds for the objects. Label and ID are empty where it names none.
struct PIVPublicInfo {
    Blob certificate;
    Blob label;
    Blob id;
};

/// Reads a container that begins with a certificate (70); any other gives nothing. A certificate in gzip
/// format is unpacked. Label and ID stand in a template 7F49, which cards may add: tag 50, an application
/// label, and tag 83, a key reference (ISO 7816-4, tables 10 and 33).
PIVPublicInfo readPublicInfo(const Blob& container);

} // namespace PKCS11
