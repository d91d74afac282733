#include "end_to_end/work_folder.h"

#include "support/child_process.h"

#include <windows.h>

#include <chrono>
#include <fstream>
#include <stdexcept>

namespace quelta::test {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds patience(90);

fs::path endToEndFolder()
{
    return ownExecutable().parent_path().parent_path() / "end-to-end";
}

fs::path freshFolder()
{
    static int count = 0;
    return endToEndFolder() / "work" / (std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count));
}

// Drive Z: is the root of the native file system.
std::string nativePath(const fs::path& path)
{
    const std::string text = path.generic_string();
    if (!text.starts_with("Z:") && !text.starts_with("z:"))
        throw std::runtime_error("The build is not on drive Z: build outside the Wine prefix, and run the tests from there");
    return text.substr(2);
}

std::string scriptFor(const std::string& commands)
{
    return "cd \"$(dirname \"$0\")\"\n"
           "shared='" +
           nativePath(sharedFolder()) +
           "'\n"
           "refuses() { if \"$@\"; then echo \"not refused: $*\"; exit 1; fi; }\n"
           "( set -e\n" +
           commands +
           "\n) >output 2>&1 </dev/null\n"
           "echo $? >status.new && mv status.new status\n";
}

// A native program has no handle to wait for, so that this is over at once: its last act is to make the file "status".
void runNatively(const fs::path& script)
{
    runProcess("\"Z:\\bin\\sh\" \"" + nativePath(script) + "\"", patience);
    const fs::path status = script.parent_path() / "status";
    for (const auto end = std::chrono::steady_clock::now() + patience; !fs::exists(status); Sleep(5)) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("The native commands take too long: " + script.string());
    }
}

} // namespace

WorkFolder::WorkFolder() : ScratchFolder(freshFolder()) {}

::testing::AssertionResult WorkFolder::shell(const std::string& commands) const
{
    fs::remove(*this / "status");
    runNatively(write("commands.sh", bytesOf(scriptFor(commands))));
    if (textOfFile(*this / "status") == "0") return ::testing::AssertionSuccess();
    const Bytes output = read("output");
    return ::testing::AssertionFailure() << commands << "\n" << std::string(output.begin(), output.end());
}

fs::path sharedFolder()
{
    return endToEndFolder() / "shared";
}

std::string textOfFile(const fs::path& path)
{
    std::ifstream stream(path);
    std::string line;
    if (!std::getline(stream, line)) throw std::runtime_error("Nothing in " + path.string() + ": run the tests through ctest");
    return line;
}

Bytes patterned(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    return bytes;
}

Bytes reversed(ByteView bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

Bytes joined(Bytes first, ByteView second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace quelta::test
