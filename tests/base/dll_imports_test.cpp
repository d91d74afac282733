#include "base/dll_imports.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <fstream>
#include <iterator>

namespace quelta {
namespace {

Bytes contentOf(const char* module)
{
    char path[MAX_PATH];
    GetModuleFileNameA(GetModuleHandleA(module), path, MAX_PATH);
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(DllImports, AreReadFromAFileAndOfDamagedOnesWithoutLeavingTheFile)
{
    const Bytes file = contentOf("kernel32.dll");
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

} // namespace
} // namespace quelta
