#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// Where a file or a part of it is (ISO/IEC 7816-15, Path): file identifiers one behind the other, and the
/// first byte and the number of bytes in the file. Broken bytes keep what was read before the break.
class PKCS15Path final : public PKCS15Sequence {
public:
    PKCS15Path();

    /// False until something was imported or set, whatever it was.
    bool isPresent() const { return m_present; }
    const Blob& path() const { return field(0); }
    void setPath(const Blob& path);
    const Blob& index() const { return field(1); }
    void setIndex(const Blob& index);
    const Blob& length() const { return field(2); }
    void setLength(const Blob& length);

protected:
    void read(const BERCoder& node) override;

private:
    bool m_present = false;
};

/// A SEQUENCE that holds a Path beside its fields: as its first element, or as the first SEQUENCE in it.
class PKCS15PathSequence : public PKCS15Sequence {
public:
    enum class Place { First, Anywhere };

    PKCS15PathSequence(const PKCS15Layout& layout, Place place) : PKCS15Sequence(layout), m_place(place) {}

    const PKCS15Path& path() const { return m_path; }
    PKCS15Path& path() { return m_path; }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    int find(const BERCoder& node) const;

    Place m_place;
    PKCS15Path m_path;
};

} // namespace PKCS11
