#pragma once

#include "pkcs11/drivers/ias/PKCS15Path.h"

#include <array>

namespace PKCS11 {

/// EF.ODF: where the object directory files are (ISO/IEC 7816-15, CIOChoice). The position of a path is its
/// tag minus A0.
class PKCS15ODF {
public:
    enum Entry { PrKDF, PuKDF, TrustedPuKDF, SKDF, CDF, TrustedCDF, UsefulCDF, DODF, AODF, Count };

    /// Replaces all entries; one that the file lacks is not present.
    void Import(const Blob& content);
    /// The paths that are not empty. Belongs to the interface; nothing in the library calls it.
    Blob Export() const;

    int GetNumber() const { return Count; }
    const PKCS15Path& path(int entry) const { return m_paths.at(static_cast<std::size_t>(entry)); }
    PKCS15Path& path(int entry) { return m_paths.at(static_cast<std::size_t>(entry)); }

private:
    std::array<PKCS15Path, Count> m_paths;
};

} // namespace PKCS11
