// What the driver and the working processes share: the weather, and what became of the calls. In shared memory, so that the
// driver still reads it when a process hangs or dies.
#pragma once

#include "base/windows_objects.h"
#include "soak/calls.h"
#include "soak/holdings.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace quelta::soak {

constexpr std::size_t workingProcesses = 3;
constexpr std::size_t threadsEach = 4;
// A process has two more.
constexpr std::size_t mainThread = threadsEach;
constexpr std::size_t userThread = threadsEach + 1;

// In the last process nobody keeps the module loaded, and there are pauses: it is loaded and unloaded again and again.
constexpr bool keepsModule(std::size_t process)
{
    return process + 1 < workingProcesses;
}

struct Outcomes {
    std::uint64_t done;
    std::uint64_t refused[mostRefusals];
};

// Something wrong, in words, and how often.
struct Finding {
    char text[240];
    std::uint64_t times;
};

// Written by one thread. What is not atomic is read when that has ended.
struct ThreadBoard {
    std::atomic<bool> working;
    std::atomic<DWORD> thread;
    std::atomic<int> call;
    // When the call began.
    std::atomic<std::uint32_t> weather;
    // Grows as long as there is progress.
    std::atomic<std::uint64_t> count;
    Outcomes outcomes[std::size(calls)];
    Finding findings[16];
    std::uint64_t signatures, decryptions, dialogs, unloadings;
    // The driver's: when it saw progress, and which.
    std::uint64_t seenAt, seenCount;
};

struct ProcessBoard {
    ThreadBoard threads[threadsEach + 2];
    // At the end of each half, with the module still loaded, where it is kept, and unloaded.
    bench::Holdings loaded[2], unloaded[2];
    std::atomic<int> stepsDone;
};

// After each half a pause; after both the last act.
enum class Stage {
    start,
    firstHalf,
    firstPause,
    secondHalf,
    secondPause,
    fresh,
    wrong,
    locked,
    given,
    stale,
    pulled,
    plugged,
    over
};

struct Board {
    std::uint32_t seed;
    std::atomic<Stage> stage;
    // Of each change of the weather, so that it tells whether it has changed since.
    std::atomic<std::uint32_t> weatherNumber;
    std::atomic<std::size_t> weatherRow;
    // Who may be about to enter a wrong PIN, and who was and has the token's answer; and the wrong PINs, counted before they are
    // entered.
    std::atomic<std::uint32_t> wrongBegun, wrongDone, wrongEntered;
    ProcessBoard processes[workingProcesses];
    ThreadBoard driver;
};

class SharedBoard {
public:
    // The driver makes it, the others open it.
    SharedBoard(const std::wstring& name, bool make)
        : mapping_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Board), name.c_str())),
          board_(static_cast<Board*>(MapViewOfFile(mapping_.get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Board))))
    {
        if (!board_) throw std::runtime_error("no shared memory: Windows error " + std::to_string(GetLastError()));
        if (make) std::construct_at(board_.get());
    }
    Board& operator*() const { return *board_; }
    Board* operator->() const { return board_.get(); }

private:
    static void unmap(const Board* board) { UnmapViewOfFile(board); }

    File mapping_;
    WindowsObject<Board*, unmap> board_;
};

} // namespace quelta::soak
