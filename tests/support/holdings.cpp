#include "support/holdings.h"

#include "base/windows_objects.h"

#include <tlhelp32.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace quelta::test {

namespace {

int threadsOfProcess()
{
    const File snapshot = fileOf(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    if (count == 0) throw std::runtime_error("the threads can't be counted");
    return count;
}

// Counts the handles in the system's list. Under Wine the process's own count is always 0.
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
    constexpr LONG tooSmall = static_cast<LONG>(0xC0000004);
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(function));
    std::vector<ULONG_PTR> list(1 << 17);
    const auto ask = [&] {
        ULONG needed = 0;
        return query(extendedHandles, list.data(), static_cast<ULONG>(list.size() * sizeof(ULONG_PTR)), &needed);
    };
    LONG status = ask();
    for (; status == tooSmall; status = ask()) list.resize(2 * list.size());
    if (status != 0) throw std::runtime_error("the handles can't be counted");
    const auto* first = reinterpret_cast<const ListedHandle*>(&list[2]);
    return std::count_if(first, first + list[0], [](const auto& entry) { return entry.process == GetCurrentProcessId(); });
}

// Returns the bytes in use in all heaps of the process.
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

} // namespace

Holdings holdings()
{
    return {threadsOfProcess(), handlesOfProcess(), -freeTlsSlots(), heapBytesOfProcess() / 1024};
}

} // namespace quelta::test
