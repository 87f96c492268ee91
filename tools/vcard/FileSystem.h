#pragma once

#include "tools/vcard/IsoCard.h"

#include <functional>
#include <memory>
#include <vector>

namespace vcard {

/// A DF, or an EF that is transparent (content) or made of records.
struct File {
    enum class Kind { DF, Transparent, Records };

    Kind kind = Kind::DF;
    unsigned short id = 0;
    Bytes name;                     ///< DF name (an application identifier), or none
    Bytes content;                  ///< of a transparent EF
    std::vector<Bytes> records;     ///< record 1 first
    std::function<bool()> readable; ///< 6982 when it says no; absent: anyone may read
    Bytes controlInformation;       ///< what SELECT answers inside 6F or 62; absent: made from the rest
    File* parent = nullptr;         ///< nullptr for the MF
    std::vector<std::unique_ptr<File>> children;
};

/// A card's tree of files with its selection: SELECT, READ BINARY and READ RECORD of ISO 7816-4. Security,
/// the instructions that are allowed, and peculiar P1-P2 are the card's business, before it hands a command
/// on.
class FileSystem {
public:
    /// Some cards look for the child DF of SELECT (P1 01) among the DFs above the current one too.
    explicit FileSystem(bool findsAbove = false);

    /// The MF, 3F00.
    File& mf() { return *m_mf; }
    static File& addDF(File& parent, unsigned short id, Bytes name = {});
    static File& addEF(File& parent, unsigned short id, Bytes content);
    static File& addRecordEF(File& parent, unsigned short id, std::vector<Bytes> records);

    /// The MF is the current DF, and there is no current EF.
    void reset();
    const File& currentDF() const { return *m_currentDF; }
    /// nullptr when no EF is selected.
    void select(File& file);

    /// SELECT by P1: 00 identifier (MF, the current DF's children, itself, its parent and its siblings), 01
    /// child DF, 02 child EF, 03 parent, 04 DF name or its beginning, 08 path from the MF, 09 path from the
    /// current DF. P2 chooses among names (first, last, next, previous) and what is answered: 6F (00), 62
    /// (04) or nothing (0C).
    Response selectCommand(const Command& command);
    /// READ BINARY of the current EF, or of the one whose short identifier (the low five bits of its
    /// identifier) is in P1.
    Response readBinary(const Command& command);
    /// READ RECORD by number (P2 xxxxx100), short identifier as for READ BINARY.
    Response readRecord(const Command& command);

private:
    File* find(const Command& command);
    File* findById(unsigned short id);
    File* findByName(const Bytes& name, unsigned occurrence);
    /// The EF to read, or the reason why not.
    Response target(unsigned shortId, File::Kind kind, const File*& file);
    /// Reads that reach the end before Le bytes came are answered with the data and 6282.
    static Response cut(Bytes data, const Command& command);

    bool m_findsAbove;
    std::unique_ptr<File> m_mf;
    File* m_currentDF = nullptr;
    File* m_currentEF = nullptr;
};

} // namespace vcard
