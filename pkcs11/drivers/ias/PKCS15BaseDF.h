/// The object directory files of a PKCS#15 file structure: records one after the other, without anything
/// around them.
#pragma once

#include "pkcs11/drivers/ias/PKCS15AuthenticationObject.h"
#include "pkcs11/drivers/ias/PKCS15CertificateObject.h"
#include "pkcs11/drivers/ias/PKCS15DataObject.h"
#include "pkcs11/drivers/ias/PKCS15PrivateKeyObject.h"

#include <memory>
#include <vector>

namespace PKCS11 {

/// The ordered list of records of a directory, which owns them.
class PKCS15BaseDF {
public:
    using Record = PKCS15CommonObjectAttributes;

    PKCS15BaseDF() = default;
    PKCS15BaseDF(const PKCS15BaseDF&) = delete;
    PKCS15BaseDF& operator=(const PKCS15BaseDF&) = delete;
    virtual ~PKCS15BaseDF() = default;

    /// Appends the records of a file. Bad ones are passed over; a file that breaks off gives those before the
    /// break.
    void Import(const Blob& content);
    /// The records one after the other. Belongs to the interface, as DeleteEntry does; nothing in the
    /// library calls them.
    Blob Export() const;

    /// Imports a record and appends it. Throws what the record's Import throws; nothing is appended then.
    virtual void InsertEntry(const Blob& encoded) = 0;
    /// Destroys the record; one that is not in the list is left alone.
    void DeleteEntry(const Record* object);
    int GetNumber() const { return static_cast<int>(m_records.size()); }

protected:
    void append(std::unique_ptr<Record> object) { m_records.push_back(std::move(object)); }
    Record& record(int i) const { return *m_records.at(static_cast<std::size_t>(i)); }

private:
    std::vector<std::unique_ptr<Record>> m_records;
};

/// A directory file (ISO/IEC 7816-15) whose records are all of one kind.
template <class RecordClass>
class PKCS15DirectoryOf : public PKCS15BaseDF {
public:
    void InsertEntry(const Blob& encoded) override
    {
        auto object = std::make_unique<RecordClass>();
        object->Import(encoded);
        append(std::move(object));
    }
    /// Appends the record and takes it over.
    void InsertEntry(std::unique_ptr<RecordClass> object) { append(std::move(object)); }
    /// Record i, from 0 to below GetNumber().
    RecordClass& operator[](int i) const { return static_cast<RecordClass&>(record(i)); }
};

class PKCS15PrKDF final : public PKCS15DirectoryOf<PKCS15PrivateKeyObject> {};
class PKCS15PuKDF final : public PKCS15DirectoryOf<PKCS15PrivateKeyObject> {};
class PKCS15CertDF final : public PKCS15DirectoryOf<PKCS15CertificateObject> {};
class PKCS15DODF final : public PKCS15DirectoryOf<PKCS15DataObject> {};
class PKCS15AuthODF final : public PKCS15DirectoryOf<PKCS15AuthenticationObject> {};

} // namespace PKCS11
