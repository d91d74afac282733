#include "common/dll_imports.h"

#include "base/microsoft_runtime.h"

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

// The file's header stands 4 bytes behind the start of the headers.
IMAGE_FILE_HEADER& headerIn(Bytes& file)
{
    const auto start = reinterpret_cast<const IMAGE_DOS_HEADER*>(file.data())->e_lfanew;
    return *reinterpret_cast<IMAGE_FILE_HEADER*>(file.data() + start + 4);
}

IMAGE_OPTIONAL_HEADER64& optionalHeaderIn(Bytes& file)
{
    return *reinterpret_cast<IMAGE_OPTIONAL_HEADER64*>(&headerIn(file) + 1);
}

TEST(DllImports, AreReadFromAFileAndOfDamagedOnesWithoutLeavingTheFile)
{
    const Bytes file = kernel32();
    const auto imports = importsOf(file);
    ASSERT_TRUE(imports);
    EXPECT_THAT(*imports, testing::Contains(testing::StrCaseEq("ntdll.dll")));
    EXPECT_FALSE(importsOf({}));
    EXPECT_FALSE(importsOf(toBytes("MZ and then nothing of the kind")));
    EXPECT_TRUE(exportsFunction(file, "CreateFileW"));
    EXPECT_FALSE(exportsFunction(file, "CreateFile"));
    EXPECT_FALSE(exportsFunction({}, "CreateFileW"));
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

TEST(DllImports, OfMicrosoftsRuntimeAreKnownInAnyCase)
{
    for (const char* name : {"vcruntime140_1.dll", "MSVCP140.dll", "ucrtbase.dll", "api-ms-win-crt-heap-l1-1-0.dll"})
        EXPECT_TRUE(isMicrosoftRuntime(name)) << name;
    for (const char* name : {"msvcrt.dll", "KERNEL32.dll", "api-ms-win-core-file-l1-1-0.dll", "MSVC"})
        EXPECT_FALSE(isMicrosoftRuntime(name)) << name;
}

TEST(DllImports, AProgramIsNoDllAndADllMayBeForAnotherProcessor)
{
    Bytes file = kernel32();
    EXPECT_EQ(dllKindOf(file), DllKind::x64);
    EXPECT_EQ(dllKindOf(ByteView(file).first(file.size() / 2)), DllKind::cutShort);
    for (const WORD machine : {WORD{IMAGE_FILE_MACHINE_I386}, WORD{IMAGE_FILE_MACHINE_ARM64}}) {
        headerIn(file).Machine = machine;
        EXPECT_EQ(dllKindOf(file), DllKind::otherProcessor);
    }
    headerIn(file).Characteristics = IMAGE_FILE_EXECUTABLE_IMAGE;
    EXPECT_EQ(dllKindOf(file), DllKind::none);
    EXPECT_EQ(dllKindOf(toBytes("MZ and then nothing of the kind")), DllKind::none);
}

TEST(DllImports, OfNoRuntimeLeaveTheCompilerToTheLinkersVersion)
{
    Bytes file = kernel32();
    BYTE& linker = optionalHeaderIn(file).MajorLinkerVersion;
    for (const auto& [version, compiler] : {std::pair(2, Compiler::gcc), {14, Compiler::unknown}}) {
        linker = static_cast<BYTE>(version);
        EXPECT_EQ(compilerOf(file), compiler) << version;
    }
}

} // namespace
} // namespace quelta
