#include "end_to_end/token_test.h"

#include "support/child_process.h"

#include <stdexcept>

namespace quelta::test {

namespace {

namespace fs = std::filesystem;

fs::path buildFolder()
{
    return ownExecutable().parent_path().parent_path();
}

const fs::path shared = buildFolder() / "end-to-end" / "shared";

std::string firstLine(const fs::path& path)
{
    std::ifstream stream(path);
    std::string line;
    if (!std::getline(stream, line)) throw std::runtime_error("Nothing in " + path.string() + ": run the tests through ctest");
    return line;
}

// The build is on drive Z:, the root of the native file system.
std::string nativePath(const fs::path& path)
{
    return path.generic_string().substr(2);
}

} // namespace

TokenFolder::TokenFolder() : ScratchFolder(buildFolder() / "end-to-end" / "work")
{
    fs::copy(shared / "token", *this / "token");
    SetEnvironmentVariableW(L"QUELTA_TOKEN_DIR", (*this / "token").c_str());
    registerBuiltModule();
}

// A native program has no handle to wait for. So the script makes the file "status" at its end.
::testing::AssertionResult TokenFolder::shell(const std::string& commands) const
{
    const fs::path script = write("commands.sh", toBytes("cd \"$(dirname \"$0\")\"\nshared='" + nativePath(shared) + R"('
refuses() { if "$@"; then echo "not refused: $*"; exit 1; fi; }
( set -e
)" + commands + R"(
) >output 2>&1 </dev/null
echo $? >status.new && mv status.new status
)"));
    fs::remove(*this / "status");
    runProcess(R"("Z:\bin\sh" ")" + nativePath(script) + "\"");
    for (int tries = 0; !fs::exists(*this / "status"); Sleep(5))
        if (++tries > 12000) return ::testing::AssertionFailure() << "no end of " << commands;
    if (firstLine(*this / "status") == "0") return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << commands << "\n" << toText(read("output"));
}

TokenTest::TokenTest()
{
    storage.usePin();
}

void drive(const std::string& command)
{
    const fs::path tool = buildFolder() / "softtoken" / "quelta-token.exe";
    EXPECT_EQ(runProcess("\"" + tool.string() + "\" " + command), 0U) << command;
}

std::string keyName(const std::string& label)
{
    return firstLine(shared / (label + ".id"));
}

} // namespace quelta::test
