#include "support/child_process.h"

#include "base/windows_objects.h"

#include <stdexcept>

namespace quelta::test {

std::filesystem::path ownExecutable()
{
    wchar_t path[MAX_PATH + 1]{};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

std::optional<DWORD> runProcess(std::string commandLine)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    const auto start = [&] {
        return CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started);
    };
    // Wine once refused a start with this error, on a busy machine.
    if (!start() && (GetLastError() != ERROR_INTERNAL_ERROR || !start()))
        throw std::runtime_error("Starting " + commandLine + " failed: " + std::to_string(GetLastError()));
    const File thread(started.hThread), process(started.hProcess);
    constexpr DWORD twoMinutes = 120'000;
    DWORD code = 0;
    if (WaitForSingleObject(process.get(), twoMinutes) == WAIT_OBJECT_0)
        return GetExitCodeProcess(process.get(), &code) ? std::optional(code) : std::nullopt;
    TerminateProcess(process.get(), 1);
    return std::nullopt;
}

std::optional<DWORD> runDisabledTest(const std::filesystem::path& executable, const std::string& test)
{
    return runProcess("\"" + executable.string() + "\" --gtest_also_run_disabled_tests --gtest_brief=1 --gtest_filter=" + test);
}

} // namespace quelta::test
