#include "support/child_process.h"

#include <array>
#include <memory>
#include <stdexcept>

namespace quelta::test {

namespace {

struct CloseProcess {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseProcess>;

Handle start(std::string commandLine)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        throw std::runtime_error("Starting " + commandLine + " failed: " + std::to_string(GetLastError()));
    }
    CloseHandle(process.hThread);
    return Handle(process.hProcess);
}

} // namespace

std::filesystem::path ownExecutable()
{
    std::array<char, MAX_PATH + 1> path{};
    GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

std::optional<DWORD> runProcess(const std::string& commandLine, std::chrono::milliseconds limit)
{
    const Handle process = start(commandLine);
    if (WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), 1);
        return std::nullopt;
    }
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    return code;
}

std::optional<DWORD> runDisabledTest(const std::filesystem::path& executable, const std::string& test,
                                     std::chrono::milliseconds limit)
{
    return runProcess("\"" + executable.string() + "\" --gtest_also_run_disabled_tests --gtest_brief=1 --gtest_filter=" + test,
                      limit);
}

} // namespace quelta::test
