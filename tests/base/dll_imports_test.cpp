#include "common/dll_imports.h"

#include "support/scratch_folder.h"

#include <gmock/gmock.h>

namespace quelta {
namespace {

Bytes kernel32()
{
    char path[MAX_PATH];
    GetModuleFileNameA(GetModuleHandleA("kernel32.dll"), path, MAX_PATH);
    return contentOf(path);
}

TEST(DllImports, AreReadFromAFileAndOfDamagedOnesWithoutLeavingTheFile)
{
    const Bytes file = kernel32();
    const auto imports = importsOf(file);
    ASSERT_TRUE(imports);
    EXPECT_THAT(*imports, testing::Contains(testing::StrCaseEq("ntdll.dll")));
    EXPECT_FALSE(importsOf(toBytes("MZ and then nothing of the kind")));
    EXPECT_TRUE(exportsFunction(file, "CreateFileW"));
    EXPECT_FALSE(exportsFunction(file, "CreateFile"));
    const auto read = [](ByteView bytes) {
        importsOf(bytes);
        exportsFunction(bytes, "no such function");
        dllKindOf(bytes);
    };
    for (std::size_t length = 0; length < 2048; length += 3) read(ByteView(file).first(length));
    ASSERT_GT(file.size(), 65536U);
    for (std::size_t at = 0; at < 1024; ++at) {
        Bytes broken = toBytes(ByteView(file).first(65536));
        broken[at] ^= 0xFF;
        read(broken);
    }
}

} // namespace
} // namespace quelta
