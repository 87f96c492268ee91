#pragma once

#include "pkcs11/token/ByteReader.h"

#include <vector>

namespace PKCS11 {

/// One BER-TLV node (X.690): a primitive one holds a value, a constructed one its components. Reads definite
/// and indefinite lengths, always writes definite and minimal ones.
class BERCoder {
public:
    /// More constructed nodes than this, one inside the other, are refused on import with CKR_DATA_INVALID.
    static constexpr int kMaxNesting = 32;

    BERCoder() = default;
    explicit BERCoder(const MultiTag& tag) : m_tag(tag) {}
    /// A primitive node.
    BERCoder(const MultiTag& tag, const Blob& value);
    virtual ~BERCoder() = default;
    BERCoder(const BERCoder&) = default;
    BERCoder(BERCoder&&) = default;
    BERCoder& operator=(const BERCoder&) = default;
    BERCoder& operator=(BERCoder&&) = default;

    const MultiTag& getTag() const { return m_tag; }
    /// Clears the value or the components, whichever the new tag does not use.
    void setTag(const MultiTag& tag);

    /// The value; throws CKR_DATA_INVALID (0x20) for a constructed node.
    const Blob& getValue() const;
    /// Ignored for a constructed node.
    void setValue(const Blob& value);

    /// Component i, the list grown with empty nodes up to it; throws CKR_DATA_INVALID for a primitive node,
    /// CKR_BUFFER_TOO_SMALL (0x150) for a negative i.
    BERCoder& operator[](int i);
    /// Component i as it stands; throws CKR_DATA_INVALID for a primitive node, CKR_BUFFER_TOO_SMALL past the
    /// end.
    const BERCoder& component(int i) const;
    /// Inserts an empty node before component i, or grows up to i; throws CKR_DATA_INVALID for a primitive
    /// node. Belongs to the interface, as the next but one does; nothing in the library calls them.
    void insertComponent(int i);
    /// Adds a component at the end; throws CKR_DATA_INVALID for a primitive node.
    void append(const BERCoder& node);
    /// Ignored when i is out of range; throws CKR_DATA_INVALID for a primitive node.
    void eraseComponent(int i);
    /// Number of components; 0 for a primitive node.
    int getSize() const { return static_cast<int>(m_components.size()); }

    /// False after decoding an indefinite length. Belongs to the interface; nothing in the library calls it.
    bool IsSizeDefinable() const { return m_sizeDefinable; }

    /// Decodes one node that starts at pos and returns the position after it. Throws CKR_DATA_INVALID (0x20)
    /// for an empty input, a malformed tag, a length of more than 4 bytes, a value that overruns the input or
    /// too deep nesting, CKR_BUFFER_TOO_SMALL (0x150) where the input ends elsewhere. After a throw the node
    /// holds the components that were decoded before the break.
    int import(const Blob& in, int pos);

    /// Size of the value or of the encoded components, in bytes.
    int getInnerSize() const;
    /// Size of the encoded node, in bytes.
    int getEncodeSize() const;
    /// Writes getEncodeSize() bytes and returns their number.
    int exportToMem(unsigned char* out) const;
    void Export(Blob& out) const;

    /// Reads the tag at pos and moves pos after it. Throws CKR_DATA_INVALID for a malformed or cut tag.
    /// Belongs to the interface; nothing in the library calls it.
    static MultiTag GetMultiTagFromBlob(const Blob& in, int& pos);
    /// The minimal definite length field.
    static Blob encodedLength(int length);

private:
    void importNode(ByteReader& reader, int depth);
    void importComponents(ByteReader& reader, std::optional<std::uint32_t> length, int depth);
    void importValue(ByteReader& reader, std::optional<std::uint32_t> length);

    MultiTag m_tag;
    Blob m_value;
    std::vector<BERCoder> m_components;
    bool m_sizeDefinable = true;
};

} // namespace PKCS11
