// Linked into the desktop edition of the shared library alone: puts the edition in force when it is loaded.
#include "pkcs11/desktop/DesktopEdition.h"

namespace {

[[maybe_unused]] const bool installed = [] {
    PKCS11::Edition::install(PKCS11::DesktopEdition::instance());
    return true;
}();

} // namespace
