// Runs the tests on the product, or with QUARVEL_EDITION=desktop on the desktop edition.
#include "pkcs11/desktop/DesktopEdition.h"
#include "pkcs11/frontend/SystemWrapper.h"
#include "tests/support/LastWord.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string_view>

LastWord lastWord __attribute__((init_priority(101)));

int main(int argc, char** argv)
{
    SystemWrapper::s_logPath = ""; // no trace but that of a test
    ::testing::InitGoogleTest(&argc, argv);
    const char* edition = std::getenv("QUARVEL_EDITION");
    std::string& filter = ::testing::GTEST_FLAG(filter);
    const bool isDesktop = edition != nullptr && std::string_view(edition) == "desktop";
    if (isDesktop)
        PKCS11::Edition::install(PKCS11::DesktopEdition::instance());
    if (!::testing::GTEST_FLAG(list_tests)) // these are for what only the other edition does
        filter +=
            std::string(filter.find('-') == filter.npos ? "-" : ":") + (isDesktop ? "Product*" : "Desktop*");
    return RUN_ALL_TESTS();
}
