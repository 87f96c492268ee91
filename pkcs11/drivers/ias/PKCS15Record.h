/// What the records of a PKCS#15 file structure (ISO/IEC 7816-15) have in common: import and export, and a
/// walker that moves the elements of a SEQUENCE into fields and back by a table.
#pragma once

#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/ByteReader.h"

#include <vector>

namespace PKCS11 {

/// A record that is read from one BER-TLV element and written back to one. It keeps the element that it was
/// read from: what nobody changed, and what it does not understand, goes back as it came.
///
/// All importers throw plain texts (const char*).
class PKCS15Record {
public:
    virtual ~PKCS15Record() = default;

    /// Reads the record at the start of the bytes; its fields are replaced.
    void Import(const Blob& encoded);
    /// The imported bytes while nothing was changed; otherwise definite and minimal lengths.
    Blob Export() const;
    /// Import and Export for a record that stands inside another one.
    void take(const BERCoder& node);
    BERCoder node() const;

    /// Length of the imported record in bytes, header included.
    int recordSize() const { return m_encoded.size(); }

protected:
    /// The text that Import throws for bytes that do not decode; null when the record then keeps what was
    /// read before the break.
    explicit PKCS15Record(const char* undecodable);
    PKCS15Record(const PKCS15Record&) = default;
    PKCS15Record& operator=(const PKCS15Record&) = default;

    virtual void read(const BERCoder& node) = 0;
    /// Brings the element that was read, or an empty SEQUENCE, up to date.
    virtual void write(BERCoder& node) const = 0;
    const char* undecodable() const { return m_undecodable; }

private:
    const char* m_undecodable;
    BERCoder m_node;
    Blob m_encoded;
};

/// An element of a SEQUENCE: its tag, and the tag of the one element inside it that holds the value, if it is
/// not the value itself. Where tags are compared, the first byte is meant.
struct PKCS15Element {
    unsigned char tag;
    unsigned char inner = 0;
};

/// The elements of a SEQUENCE in their order, one per field. Elements with the same tag fill their fields one
/// after the other.
struct PKCS15Layout {
    enum class Others { Skip, End, Refuse };

    const PKCS15Element* elements;
    int count;
    /// What an element with another tag does: nothing, end the walk, or make the import fail.
    Others others;
    /// Texts: for a record that is no SEQUENCE (null: nothing is read), and for all else that fails.
    const char* wrongTag;
    const char* error;
};

template <int N>
constexpr PKCS15Layout pkcs15Layout(const PKCS15Element (&elements)[N], PKCS15Layout::Others others,
                                    const char* wrongTag, const char* error)
{
    return {elements, N, others, wrongTag, error};
}

/// A SEQUENCE whose elements are the fields of a table. An empty field has no element.
class PKCS15Sequence : public PKCS15Record {
public:
    /// The layout must outlive the record.
    explicit PKCS15Sequence(const PKCS15Layout& layout) : PKCS15Sequence(layout, layout.error) {}
    /// With another text for bytes that do not decode.
    PKCS15Sequence(const PKCS15Layout& layout, const char* undecodable);

    const Blob& field(int i) const { return m_fields.at(static_cast<std::size_t>(i)); }
    void setField(int i, const Blob& value) { m_fields.at(static_cast<std::size_t>(i)) = value; }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    /// The field that each component fills, -1 for none; as long as the walk goes.
    std::vector<int> match(const BERCoder& node) const;
    bool isEmpty() const;

    const PKCS15Layout* m_layout;
    std::vector<Blob> m_fields;
};

/// True when the element's tag begins with the byte.
bool hasTag(const BERCoder& node, int firstByte);
/// The place of the first component with such a tag, or -1.
int findComponent(const BERCoder& node, int firstByte);
/// Component i, or null when there is none.
const BERCoder* componentOf(const BERCoder& node, int i);
/// Makes the element component i, with empty SEQUENCEs in the places before it that do not exist. An empty
/// element that has no place is left out.
void putComponent(BERCoder& node, int i, const BERCoder& element);

/// Reads a BER length; 80 counts as 0. Throws CKR_BUFFER_TOO_SMALL (0x150) at the end of the input and
/// CKR_DATA_INVALID (0x20) for more than the input can hold.
int readBERLength(ByteReader& reader);

/// The TLV elements that follow one another in a file. Padding between and behind them (00 and FF bytes) is
/// left out; the first element that is not whole ends the list.
std::vector<Blob> splitElements(const Blob& content);

/// The value of a non-negative INTEGER; the largest int for one that does not fit.
int integerOf(const Blob& value);

} // namespace PKCS11
