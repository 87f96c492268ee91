#include "pkcs11/frontend/FunctionList.h"
#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/PivCard.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>

namespace {

struct Unload {
    void operator()(void* module) const { EXPECT_EQ(dlclose(module), 0); }
};
using Module = std::unique_ptr<void, Unload>;

CK_FUNCTION_LIST* functions(const Module& module)
{
    const auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module.get(), "C_GetFunctionList"));
    CK_FUNCTION_LIST* list = nullptr;
    EXPECT_EQ(get(&list), CKR_OK);
    return list;
}

TEST(ModuleTest, ExportsTheFunctionsAndNothingElse)
{
    std::set<std::string> exported;
    const std::unique_ptr<FILE, int (*)(FILE*)> nm(popen("nm -D --defined-only " QUARVEL_MODULE, "r"),
                                                   pclose);
    char name[256];
    while (fscanf(nm.get(), "%*s %*s %255s", name) == 1)
        exported.insert(name);
    // A second module beside one whose functions are visible to all.
    const Module other(dlopen(QUARVEL_MODULE, RTLD_NOW | RTLD_GLOBAL));
    ASSERT_EQ(std::system("cp " QUARVEL_MODULE " second.so"), 0);
    const Module module(dlopen("./second.so", RTLD_NOW));
    std::remove("second.so");
    const CK_FUNCTION_LIST* list = functions(module);
    EXPECT_EQ(list->version.major * 100 + list->version.minor, 211);
    EXPECT_EQ(functions(module), list);
#define EXPECT_EXPORTED(name)                                                                                \
    EXPECT_EQ(reinterpret_cast<void*>(list->C_##name), dlsym(module.get(), "C_" #name)) << #name;            \
    EXPECT_EQ(exported.erase("C_" #name), 1U) << #name;
    QUARVEL_CRYPTOKI_FUNCTIONS(EXPECT_EXPORTED)
    EXPECT_TRUE(exported.empty()) << *exported.begin();
}

TEST(ModuleTest, UnloadsAndExitsWithAndWithoutFinalize)
{
    fakepcsc::insertCard(fakepcsc::addReader("Reader 0"), std::make_shared<vcard::PivCard>());
    const auto use = [](bool finalize) {
        Module module(dlopen(QUARVEL_MODULE, RTLD_NOW));
        const CK_FUNCTION_LIST* list = functions(module);
        CK_SESSION_HANDLE session = 0;
        CK_BYTE pin[] = "123456";
        EXPECT_EQ(list->C_Initialize(nullptr), CKR_OK);
        EXPECT_EQ(list->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
        EXPECT_EQ(list->C_Login(session, CKU_USER, pin, 6), CKR_OK);
        if (finalize)
            list->C_Finalize(nullptr);
        return module;
    };
    for (const bool finalize : {true, false}) {
        use(finalize);
        EXPECT_EQ(fakepcsc::open().handles + fakepcsc::open().contexts, 0);
        const auto exitLoaded = [&] {
            static_cast<void>(use(finalize).release());
            std::exit(HasFailure() ? 1 : 0);
        };
        EXPECT_EXIT(exitLoaded(), ::testing::ExitedWithCode(0), "") << finalize;
    }
}

} // namespace
