// Runs the tests on the product, or with QUARVEL_EDITION=desktop on the desktop edition.
#include "pkcs11/desktop/DesktopEdition.h"
#include "pkcs11/frontend/SystemWrapper.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string_view>

int main(int argc, char** argv)
{
    const char* edition = std::getenv("QUARVEL_EDITION");
    if (edition != nullptr && std::string_view(edition) == "desktop")
        PKCS11::Edition::install(PKCS11::DesktopEdition::instance());
    SystemWrapper::s_logPath = ""; // no trace but that of a test
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
