#include "publishing.h"

#include "base/windows_objects.h"
#include "common/publishing_end.h"

#include <sddl.h>
#include <tlhelp32.h>

namespace quelta::installer {

namespace {

// A watching program looks for the event every two seconds, and may be busy with the token in between.
constexpr ULONGLONG longestWait = 15'000;
constexpr DWORD pause = 200;

using LocalMemory = WindowsObject<PSECURITY_DESCRIPTOR, LocalFree>;

bool toolRuns()
{
    const File snapshot = fileOf(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    for (BOOL more = snapshot && Process32FirstW(snapshot.get(), &process); more; more = Process32NextW(snapshot.get(), &process))
        if (_wcsicmp(process.szExeFile, L"quelta.exe") == 0) return true;
    return false;
}

// Makes the event: system and administrators own it, all users may open it. Null if Windows refuses.
File endingEvent()
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;0x00100000;;;WD)", SDDL_REVISION_1,
                                                              &descriptor, nullptr))
        return nullptr;
    const LocalMemory freed(descriptor);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    return File(CreateEventW(&attributes, TRUE, TRUE, publishingEndsEvent));
}

} // namespace

void endPublishing()
{
    if (!toolRuns()) return;
    const File event = endingEvent();
    const ULONGLONG end = GetTickCount64() + longestWait;
    while (event && toolRuns() && GetTickCount64() < end) Sleep(pause);
}

} // namespace quelta::installer
