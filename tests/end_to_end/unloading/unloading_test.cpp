#include "support/child_process.h"
#include "support/log_folder.h"

#include "base/windows_objects.h"
#include "csp/entry_points.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <tlhelp32.h>

#include <chrono>
#include <cstdlib>
#include <memory>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;

struct CloseSnapshot {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};

int threadsOfProcess()
{
    const std::unique_ptr<void, CloseSnapshot> snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    return count;
}

// As the system lists them: under Wine the process's own count of its handles is always 0.
struct ListedHandle {
    void* object;
    ULONG_PTR process;
    ULONG_PTR handle;
    ULONG rest[4];
};
static_assert(sizeof(ListedHandle) == 40);

int handlesOfProcess()
{
    using Query = LONG(NTAPI*)(ULONG what, void* buffer, ULONG size, ULONG* needed);
    constexpr ULONG extendedHandles = 64;
    const FARPROC function = GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation");
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(function));
    std::vector<ULONG_PTR> list(1 << 17);
    ULONG needed = 0;
    const auto size = static_cast<ULONG>(list.size() * sizeof(ULONG_PTR));
    if (query(extendedHandles, list.data(), size, &needed) != 0) throw std::runtime_error("the system does not list its handles");
    const auto* first = reinterpret_cast<const ListedHandle*>(&list[2]);
    const auto own = [](const ListedHandle& entry) { return entry.process == GetCurrentProcessId(); };
    const auto count = static_cast<int>(std::count_if(first, first + list[0], own));
    if (count == 0) throw std::runtime_error("the system lists no handle of this process");
    return count;
}

Library loadModule()
{
    return Library(LoadLibraryA((ownExecutable().parent_path() / "QueltaCSP.dll").string().c_str()));
}

template <class Function>
Function* entry(const Library& module, const char* name)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module.get(), name)));
}

// A token of the test's own, for this process and those that it starts.
void makeToken(const std::filesystem::path& folder)
{
    _putenv_s("QUELTA_TOKEN_DIR", folder.string().c_str());
    const auto tool = ownExecutable().parent_path().parent_path() / "softtoken" / "quelta-token.exe";
    ASSERT_EQ(runProcess("\"" + tool.string() + "\" init --pin 1234", 60s), 0U);
}

void openOnce(const Library& module)
{
    HCRYPTPROV context = 0;
    // Must be there, and is not looked at.
    int callbacks = 0;
    ASSERT_TRUE(entry<decltype(CPAcquireContext)>(module, "CPAcquireContext")(&context, nullptr, 0, &callbacks))
        << GetLastError();
    EXPECT_TRUE(entry<decltype(CPReleaseContext)>(module, "CPReleaseContext")(context, 0));
}

// Idle threads of the process's pool leave by themselves after some seconds.
bool settlesAt(int threads, int handles)
{
    for (const ULONGLONG end = GetTickCount64() + 20000; GetTickCount64() < end; Sleep(100)) {
        if (threadsOfProcess() <= threads && handlesOfProcess() <= handles) return true;
    }
    return false;
}

constexpr auto limit = 120s;

} // namespace

TEST(Unloading, TwentyRoundsInOneProcess)
{
    EXPECT_EQ(runDisabledTest(ownExecutable(), "Unloading.DISABLED_TwentyRounds", limit), 0U);
}

TEST(Unloading, DISABLED_TwentyRounds)
{
    LogFolder log;
    makeToken(log.path() / "token");
    int threads = 0;
    int handles = 0;
    for (int round = 1; round <= 20; ++round) {
        Library module = loadModule();
        ASSERT_TRUE(module) << GetLastError();
        openOnce(module);
        // With and without the monitor in its sleep when the end comes.
        if (round % 2 == 0) Sleep(100);
        module.reset();
        ASSERT_EQ(GetModuleHandleA("QueltaCSP.dll"), nullptr) << "round " << round;

        const std::string text = log.takeText();
        const auto stopped = text.rfind("Device monitor thread stopped.");
        const auto joined = text.rfind("Monitor thread joined (stopDeviceMonitor).\n");
        ASSERT_NE(joined, std::string::npos) << text;
        EXPECT_EQ(text.find('\n', joined), text.size() - 1) << "the last line:\n" << text;
        if (round % 2 == 0) {
            EXPECT_LT(stopped, joined) << text;
        }
        if (round == 2) {
            threads = threadsOfProcess();
            handles = handlesOfProcess();
        }
    }
    EXPECT_TRUE(settlesAt(threads, handles)) << threadsOfProcess() << " threads in place of " << threads << ", "
                                             << handlesOfProcess() << " handles in place of " << handles;
}

TEST(Unloading, ProcessEndsThoughNobodyFreedTheModule)
{
    EXPECT_EQ(runDisabledTest(ownExecutable(), "Unloading.DISABLED_LeavesTheModuleLoaded", 20s), 0U);
}

TEST(Unloading, DISABLED_LeavesTheModuleLoaded)
{
    const LogFolder log;
    makeToken(log.path() / "token");
    Library module = loadModule();
    ASSERT_TRUE(module) << GetLastError();
    openOnce(module);
    Sleep(100);
    static_cast<void>(module.release());
}

} // namespace quelta::test
