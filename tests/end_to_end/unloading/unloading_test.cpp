#include "end_to_end/interfaces.h"
#include "support/child_process.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <tlhelp32.h>

#include <array>
#include <cstdlib>

namespace quelta::test {

namespace {

int threadsOfProcess()
{
    const File snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
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

std::ptrdiff_t handlesOfProcess()
{
    using Query = LONG(NTAPI*)(ULONG what, void* buffer, ULONG size, ULONG* needed);
    constexpr ULONG extendedHandles = 64;
    const FARPROC function = GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation");
    std::vector<ULONG_PTR> list(1 << 17);
    ULONG needed = 0;
    const auto size = static_cast<ULONG>(list.size() * sizeof(ULONG_PTR));
    if (reinterpret_cast<Query>(reinterpret_cast<void*>(function))(extendedHandles, list.data(), size, &needed)) return 0;
    const auto* first = reinterpret_cast<const ListedHandle*>(&list[2]);
    return std::count_if(first, first + list[0], [](const auto& entry) { return entry.process == GetCurrentProcessId(); });
}

// In use, in all heaps of the process.
std::ptrdiff_t heapBytesOfProcess()
{
    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    std::ptrdiff_t bytes = 0;
    for (const HANDLE heap : heaps) {
        HeapLock(heap);
        for (PROCESS_HEAP_ENTRY entry{}; HeapWalk(heap, &entry);)
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) bytes += entry.cbData;
        HeapUnlock(heap);
    }
    return bytes;
}

std::ptrdiff_t freeTlsSlots()
{
    std::vector<DWORD> slots;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) slots.push_back(slot);
    for (const DWORD slot : slots) TlsFree(slot);
    return std::ssize(slots);
}

// What the process holds, and would lose to a module that leaves something behind: threads, handles, TLS slots, kilobytes on
// heaps.
using Holdings = std::array<std::ptrdiff_t, 4>;

Holdings holdings()
{
    return {threadsOfProcess(), handlesOfProcess(), -freeTlsSlots(), heapBytesOfProcess() / 1024};
}

} // namespace

// Each in a process of its own.
class Unloading : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Unloading,
                         ::testing::Values("TwentyRounds", "LogLevelRaisedWhileItWaits", "ProcessEndsThoughLoaded"),
                         [](const auto& row) { return row.param; });

TEST_P(Unloading, EndsWell)
{
    EXPECT_EQ(runDisabledTest(ownExecutable(), std::string("UnloadingProcess.DISABLED_") + GetParam()), 0U);
}

class UnloadingProcess : public ::testing::Test {
protected:
    UnloadingProcess()
    {
        _putenv_s("QUELTA_TOKEN_DIR", (log.path() / "token").string().c_str());
        const auto tool = ownExecutable().parent_path().parent_path() / "softtoken" / "quelta-token.exe";
        EXPECT_EQ(runProcess("\"" + tool.string() + "\" init --pin 1234"), 0U);
        registerBuiltModule();
    }

    LogFolder log;
};

TEST_F(UnloadingProcess, DISABLED_TwentyRounds)
{
    constexpr int rounds = 20;
    constexpr int firstRounds = 2;
    Holdings before{};
    for (int round = 1; round <= rounds; ++round) {
        {
            const KeyStorage storage;
            ASSERT_TRUE(CryptoApi().get());
            // With and without the monitor in its sleep when the end comes.
            if (round % 2 == 0) Sleep(100);
        }
        ASSERT_EQ(GetModuleHandleA("QueltaCSP.dll"), nullptr) << "round " << round;

        const std::string text = log.takeText();
        EXPECT_TRUE(text.ends_with("Monitor thread joined (stopDeviceMonitor).\n")) << text;
        EXPECT_TRUE(round % 2 || text.contains("Device monitor thread stopped.")) << text;
        if (round == firstRounds) before = holdings();
    }
    ASSERT_GT(before[1], 0) << "the system does not list them";
    // A few bytes a round are the system's own.
    before[3] += rounds - firstRounds;
    const auto nothingMore = [&](const Holdings& now) { return std::ranges::equal(now, before, std::less_equal()); };
    // Idle threads of the process's pool leave by themselves after some seconds.
    for (int tries = 0; tries < 200 && !nothingMore(holdings()); ++tries) Sleep(100);
    EXPECT_TRUE(nothingMore(holdings())) << testing::PrintToString(holdings()) << " in place of "
                                         << testing::PrintToString(before);
}

// The process's first line is then one of the monitor's, on a thread for which the loader's lock is held: whatever that line has
// to look up for the first time, it waits for ever.
TEST_F(UnloadingProcess, DISABLED_LogLevelRaisedWhileItWaits)
{
    setLogLevel(2);
    {
        const KeyStorage storage;
        ASSERT_EQ(storage.status(), 0);
        Sleep(100);
        ASSERT_EQ(log.takeText(), "");
        setLogLevel(3);
    }
    EXPECT_THAT(log.takeText(), ::testing::HasSubstr("Device monitor thread stopped."));
}

TEST_F(UnloadingProcess, DISABLED_ProcessEndsThoughLoaded)
{
    const auto* never = new KeyStorage;
    EXPECT_EQ(never->status(), 0);
    Sleep(100);
}

} // namespace quelta::test
