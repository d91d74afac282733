#include "common/dll_imports.h"

#include "base/microsoft_runtime.h"

#include "support/scratch_folder.h"

#include <gmock/gmock.h>

namespace quelta {
namespace {

TEST(DllImports, AreReadFromAFileAndOfDamagedOnesWithoutLeavingTheFile)
{
    char path[MAX_PATH];
    GetModuleFileNameA(GetModuleHandleA("kernel32.dll"), path, MAX_PATH);
    const Bytes file = contentOf(path);
    const auto imports = importsOf(file);
    ASSERT_TRUE(imports);
    EXPECT_THAT(*imports, testing::Contains(testing::StrCaseEq("ntdll.dll")));
    EXPECT_FALSE(importsOf({}));
    EXPECT_FALSE(importsOf(toBytes("MZ and then nothing of the kind")));
    for (std::size_t length = 0; length < 2048; length += 3) importsOf(ByteView(file).first(length));
    ASSERT_GT(file.size(), 65536U);
    for (std::size_t at = 0; at < 1024; ++at) {
        Bytes broken = toBytes(ByteView(file).first(65536));
        broken[at] ^= 0xFF;
        importsOf(broken);
    }
}

TEST(DllImports, OfMicrosoftsRuntimeAreKnownInAnyCase)
{
    for (const char* name : {"vcruntime140_1.dll", "MSVCP140.dll", "ucrtbase.dll", "api-ms-win-crt-heap-l1-1-0.dll"})
        EXPECT_TRUE(isMicrosoftRuntime(name)) << name;
    for (const char* name : {"msvcrt.dll", "KERNEL32.dll", "api-ms-win-core-file-l1-1-0.dll", "MSVC"})
        EXPECT_FALSE(isMicrosoftRuntime(name)) << name;
}

} // namespace
} // namespace quelta
