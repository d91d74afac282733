// Run with a device library of another compiler on the path.

#include "base/key_storage_table.h"
#include "base/provider_name.h"
#include "base/windows_objects.h"
#include "end_to_end/crypto_api.h"
#include "end_to_end/token_test.h"
#include "support/log_folder.h"

#include <gtest/gtest.h>

#include <vector>

namespace quelta::test {

namespace {

TEST(ForeignLibrary, IsRefusedByBothInterfacesBeforeAStringCrosses)
{
    LogFolder log;
    registerBuiltModule();

    HCRYPTPROV context = 0;
    EXPECT_FALSE(CryptAcquireContextA(&context, nullptr, providerName, PROV_RSA_FULL, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_PROVIDER_DLL_FAIL));

    const Library module(LoadLibraryA(builtModule().c_str()));
    ASSERT_TRUE(module);
    const auto interfaceOf = reinterpret_cast<GetKeyStorageInterfaceFunction>(
        reinterpret_cast<void*>(GetProcAddress(module.get(), "GetKeyStorageInterface")));
    KeyStorageFunctionTable* table = nullptr;
    ASSERT_EQ(interfaceOf(nullptr, &table, 0), ERROR_SUCCESS);
    NCRYPT_PROV_HANDLE provider = 0;
    EXPECT_EQ(table->OpenProvider(&provider, nullptr, 0), NTE_PROVIDER_DLL_FAIL);

    auto lines = log.takeLines();
    std::erase_if(lines, [](const auto& line) { return line.tag != error("").tag; });
    const LogLine refusal = error("QueltaDSCLibrary.dll was built with another compiler than this QueltaCSP.dll (it imports "
                                  "VCRUNTIME140.dll): install the QueltaCSP.dll that was built with Visual C++");
    EXPECT_EQ(lines, (std::vector{refusal, refusal}));
}

} // namespace

} // namespace quelta::test
