#include "soak/dialogs.h"
#include "soak/jobs.h"
#include "soak/soak.h"
#include "soak/soak_user.h"

#include <cstdio>

namespace quelta::soak {

namespace {

bool moduleIsLoaded()
{
    return GetModuleHandleA(moduleName) != nullptr;
}

void workThrough(Thread& thread, Stage half, const Known& known, bool moduleStays)
try {
    constexpr ULONGLONG lifetime = 1500;
    const ULONGLONG end = GetTickCount64() + lifetime;
    while (thread.board.stage == half && GetTickCount64() < end) {
        thread.oneIn(2) ? useCryptoApi(thread, known) : useKeyStorage(thread, known);
        Sleep(static_cast<DWORD>(thread.below(moduleStays ? 20 : 200)));
        if (!moduleIsLoaded()) ++thread.own.unloadings;
    }
} catch (const std::exception& error) {
    thread.find(std::string("A thread of the soak's own ended: ") + error.what());
}

// Between two of these nothing may take the watchdog's patience.
void rest(Thread& thread)
{
    Sleep(20);
    ++thread.own.count;
}

// One thread after the other, so that what each leaves behind adds up.
void workInTurns(Board& board, std::size_t process, std::size_t row, Stage half, const Known& known)
{
    auto number = (static_cast<std::size_t>(half) * workingProcesses + process) * threadsEach + row;
    for (; board.stage == half; number += 1000) {
        const std::jthread next([&] {
            Thread thread(board, board.processes[process].threads[row], static_cast<std::uint32_t>(board.seed + number));
            workThrough(thread, half, known, keepsModule(process));
        });
    }
}

// Idle threads of the process's pool leave by themselves after some seconds, and take along what is theirs.
bench::Holdings settledHoldings()
{
    bench::Holdings least = bench::holdings();
    for (int tries = 0; tries < 14; ++tries) {
        Sleep(500);
        std::ranges::transform(least, bench::holdings(), least.begin(), [](auto a, auto b) { return std::min(a, b); });
    }
    return least;
}

void workHalf(Thread& main, std::size_t process, Stage half, const Known& known)
{
    Board& board = main.board;
    ProcessBoard& own = board.processes[process];
    const int count = half == Stage::firstHalf ? 0 : 1;
    const HMODULE kept = keepsModule(process) ? LoadLibraryA(moduleName) : nullptr;
    std::vector<std::jthread> threads;
    for (std::size_t row = 0; row < (kept ? threadsEach : threadsEach / 2); ++row)
        threads.emplace_back([&, row] { workInTurns(board, process, row, half, known); });
    while (board.stage == half) rest(main);
    threads.clear();
    if (kept) {
        own.loaded[count] = settledHoldings();
        main.ask("FreeLibrary", [&] { return FreeLibrary(kept); });
    }
    if (moduleIsLoaded()) main.find("The module stays loaded although everything was released");
    own.unloaded[count] = settledHoldings();
}

// In place of a debugger or a window, for which the process would wait.
LONG WINAPI endAtCrash(EXCEPTION_POINTERS* crash)
{
    const auto& [code, flags, inner, address, count, details] = *crash->ExceptionRecord;
    std::fprintf(stderr, "exception %08lX at %p; the module stands at %p\n", code, address,
                 static_cast<void*>(GetModuleHandleA(moduleName)));
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), code);
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

void work(const std::wstring& name, std::size_t process)
{
    SetUnhandledExceptionFilter(endAtCrash);
    const SharedBoard board(name, false);
    ProcessBoard& own = board->processes[process];
    Thread thread(*board, own.threads[mainThread], board->seed);
    const Known known = readKnown();
    const SoakUser user(*board, process);
    const auto reach = [&](Stage stage) {
        ++own.stepsDone;
        while (board->stage < stage) rest(thread);
    };
    for (const Stage half : {Stage::firstHalf, Stage::secondHalf}) {
        reach(half);
        workHalf(thread, process, half, known);
    }
    playLastAct(thread, known, process, reach);
    reach(Stage::over);
}

} // namespace quelta::soak
