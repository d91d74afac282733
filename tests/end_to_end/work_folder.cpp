#include "end_to_end/work_folder.h"

#include "support/child_process.h"

#include <windows.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace quelta::test {

namespace {

namespace fs = std::filesystem;

constexpr ULONGLONG patience = 90000;

fs::path endToEndFolder()
{
    return ownExecutable().parent_path().parent_path() / "end-to-end";
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

// A native program has no handle to wait for: its last act is to make the file "status".
void runNatively(const fs::path& script)
{
    std::string commandLine = "\"Z:\\bin\\sh\" \"" + nativePath(script) + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        throw std::runtime_error("/bin/sh does not start under Wine: " + std::to_string(GetLastError()));
    const fs::path status = script.parent_path() / "status";
    for (const ULONGLONG end = GetTickCount64() + patience; !fs::exists(status); Sleep(5)) {
        if (GetTickCount64() > end) throw std::runtime_error("The native commands take too long: " + script.string());
    }
}

} // namespace

WorkFolder::WorkFolder()
{
    static int count = 0;
    path_ = endToEndFolder() / "work" / (std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count));
    fs::remove_all(path_);
    fs::create_directories(path_);
}

WorkFolder::~WorkFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void WorkFolder::write(const std::string& name, ByteView content) const
{
    std::ofstream stream(path_ / name, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (!stream.flush()) throw std::runtime_error("Writing " + name + " failed");
}

Bytes WorkFolder::read(const std::string& name) const
{
    std::ifstream stream(path_ / name, std::ios::binary);
    if (!stream) throw std::runtime_error("There is no " + name + " in the test's folder");
    return {std::istreambuf_iterator<char>(stream), {}};
}

::testing::AssertionResult WorkFolder::shell(const std::string& commands) const
{
    fs::remove(path_ / "status");
    write("commands.sh", bytesOf(scriptFor(commands)));
    runNatively(path_ / "commands.sh");
    if (textOfFile(path_ / "status") == "0") return ::testing::AssertionSuccess();
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

Bytes reversed(ByteView bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

} // namespace quelta::test
