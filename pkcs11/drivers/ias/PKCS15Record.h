/// What the records of a PKCS#15 file structure (ISO/IEC 7816-15) have in common: import and export, and two
/// walkers that move the elements of a SEQUENCE into the members of a record and back by a table.
#pragma once

#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"

#include <vector>

namespace PKCS11 {

/// A record that is read from one BER-TLV element and written back to one: the members that are not empty, in
/// the order of the tables. The driver only reads; Export belongs to the interface.
///
/// All importers throw plain texts (const char*).
class PKCS15Record {
public:
    virtual ~PKCS15Record() = default;

    /// Reads the record at the start of the bytes; its members are replaced.
    void Import(const Blob& encoded);
    Blob Export() const;
    /// Import and Export for a record that stands inside another one.
    virtual void read(const BERCoder& node) = 0;
    virtual BERCoder node() const = 0;

    /// True when nothing is there to be written.
    bool isEmpty() const { return node().getSize() == 0; }
    /// Length of the imported record in bytes, header included. Belongs to the interface; nothing in the
    /// library calls it.
    int recordSize() const { return m_recordSize; }

protected:
    /// The text that Import throws for bytes that do not decode; null when the record then keeps what was
    /// read before the break.
    explicit PKCS15Record(const char* undecodable) : m_undecodable(undecodable) {}
    PKCS15Record(const PKCS15Record&) = default;
    PKCS15Record& operator=(const PKCS15Record&) = default;

private:
    const char* m_undecodable;
    int m_recordSize = 0;
};

/// A member that holds the value of an element of a SEQUENCE, and the tag of the element; `inner` is the tag
/// of the one element inside it that is the value, if it is not the value itself. Where tags are compared,
/// the first byte is meant. Elements with the same tag fill their members one after the other.
template <class Record>
struct PKCS15Element {
    Blob Record::*value;
    unsigned char tag;
    unsigned char inner = 0;
};

/// What an element with another tag does: nothing, or end the walk.
enum class PKCS15Others { Skip, End };

/// True when the element's tag begins with the byte.
bool hasTag(const BERCoder& node, int firstByte);
/// The place of the first component with such a tag, or -1.
int findComponent(const BERCoder& node, int firstByte);
/// Component i, or null when there is none.
const BERCoder* componentOf(const BERCoder& node, int i);
/// The component that holds the value of a table's element, or null when it is not that element.
const BERCoder* valueOf(const BERCoder& component, unsigned char tag, unsigned char inner);
/// A constructed element with these components.
BERCoder elementOf(int tag, std::initializer_list<BERCoder> components);
/// A table's element with the value.
BERCoder elementOf(unsigned char tag, unsigned char inner, const Blob& value);
/// Throws the text for a node that is no SEQUENCE.
void requireSequence(const BERCoder& node, const char* text);

/// Fills the empty members from the components, the one at `first` and those after it. False when an element
/// with another tag ended the walk.
template <class Record, int N>
bool readElements(const BERCoder& sequence, Record& record, const PKCS15Element<Record> (&elements)[N],
                  PKCS15Others others = PKCS15Others::Skip, int first = 0)
{
    for (int i = first; i < sequence.getSize(); ++i) {
        bool known = false;
        for (const PKCS15Element<Record>& element : elements) {
            known = known || hasTag(sequence.component(i), element.tag);
            const BERCoder* value = valueOf(sequence.component(i), element.tag, element.inner);
            if (value == nullptr || !(record.*element.value).empty())
                continue;
            record.*element.value = value->getValue();
            break;
        }
        if (!known && others == PKCS15Others::End)
            return false;
    }
    return true;
}

/// A SEQUENCE of these components and of the members that are not empty.
template <class Record, int N>
BERCoder sequenceOf(const Record& record, const PKCS15Element<Record> (&elements)[N],
                    std::initializer_list<BERCoder> first = {})
{
    BERCoder sequence = elementOf(kSequence, first);
    for (const PKCS15Element<Record>& element : elements) {
        if (!(record.*element.value).empty())
            sequence.append(elementOf(element.tag, element.inner, record.*element.value));
    }
    return sequence;
}

/// The TLV elements that follow one another in a file. Padding between and after them (00 and FF bytes) is
/// left out; the first element that is not whole ends the list.
std::vector<Blob> splitElements(const Blob& content);

/// The value of a non-negative INTEGER; the largest int for one that does not fit.
int integerOf(const Blob& value);

} // namespace PKCS11
