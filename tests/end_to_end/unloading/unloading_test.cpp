#include "support/child_process.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include "base/windows_objects.h"
#include "csp/entry_points.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <tlhelp32.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <ostream>

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

// In use, in all heaps of the process.
std::size_t heapBytesOfProcess()
{
    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    std::size_t bytes = 0;
    for (const HANDLE heap : heaps) {
        PROCESS_HEAP_ENTRY entry{};
        HeapLock(heap);
        while (HeapWalk(heap, &entry)) {
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) bytes += entry.cbData;
        }
        HeapUnlock(heap);
    }
    return bytes;
}

int freeTlsSlots()
{
    std::vector<DWORD> slots;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) slots.push_back(slot);
    for (const DWORD slot : slots) TlsFree(slot);
    return static_cast<int>(slots.size());
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

// What the process holds, and would lose to a module that leaves something behind.
struct Holdings {
    int threads = threadsOfProcess();
    int handles = handlesOfProcess();
    int freeTlsSlots = test::freeTlsSlots();
    std::size_t heapBytes = heapBytesOfProcess();
};

std::ostream& operator<<(std::ostream& out, const Holdings& held)
{
    return out << held.threads << " threads, " << held.handles << " handles, " << held.freeTlsSlots << " free TLS slots, "
               << held.heapBytes << " bytes on heaps";
}

// Idle threads of the process's pool leave by themselves after some seconds. A few bytes a round are the system's own.
bool settlesAt(const Holdings& before, std::size_t allowance)
{
    for (const ULONGLONG end = GetTickCount64() + 20000; GetTickCount64() < end; Sleep(100)) {
        const Holdings now;
        if (now.threads <= before.threads && now.handles <= before.handles && now.freeTlsSlots >= before.freeTlsSlots &&
            now.heapBytes <= before.heapBytes + allowance)
            return true;
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
    constexpr int rounds = 20;
    constexpr int firstRounds = 2;
    std::optional<Holdings> before;
    for (int round = 1; round <= rounds; ++round) {
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
        if (round == firstRounds) before.emplace();
    }
    constexpr std::size_t allowance = 1024 * (rounds - firstRounds);
    EXPECT_TRUE(settlesAt(*before, allowance)) << Holdings() << " in place of " << *before;
}

TEST(Unloading, LogLevelRaisedWhileItWaits)
{
    EXPECT_EQ(runDisabledTest(ownExecutable(), "Unloading.DISABLED_LogLevelRaised", 30s), 0U);
}

// The process's first line is then one of the monitor's, on a thread for which the loader's lock is held: whatever that line has
// to look up for the first time, it waits for ever.
TEST(Unloading, DISABLED_LogLevelRaised)
{
    LogFolder log;
    makeToken(log.path() / "token");
    setLogLevel(2);
    Library module = loadModule();
    ASSERT_TRUE(module) << GetLastError();
    openOnce(module);
    Sleep(100);
    ASSERT_EQ(log.takeText(), "");
    setLogLevel(3);
    module.reset();
    EXPECT_THAT(log.takeText(), ::testing::HasSubstr("Device monitor thread stopped."));
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
