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

// In the last process nobody keeps the module loaded, and there are pauses: it is loaded and unloaded again and again.
bool keepsModule(std::size_t process)
{
    return process + 1 < workingProcesses;
}

void workThrough(Thread& thread, Stage half, const Known& known, bool moduleStays)
try {
    while (thread.board.stage == half) {
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

void workHalf(Thread& main, std::size_t process, Stage half, const Known& known)
{
    Board& board = main.board;
    const HMODULE kept = keepsModule(process) ? LoadLibraryA(moduleName) : nullptr;
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < (kept ? threadsEach : threadsEach / 2); ++i) {
        threads.emplace_back([&, i] {
            const auto number = (static_cast<std::size_t>(half) * workingProcesses + process) * threadsEach + i;
            Thread thread(board, board.processes[process].threads[i], static_cast<std::uint32_t>(board.seed + number));
            workThrough(thread, half, known, kept != nullptr);
        });
    }
    while (board.stage == half) rest(main);
    threads.clear();
    if (kept) main.ask("FreeLibrary", [&] { return FreeLibrary(kept); });
    if (moduleIsLoaded()) main.find("The module stays loaded although everything was released");
    if (!bench::visibleDialogs().empty()) main.find("A window is open although nobody calls any more");
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
    const SoakUser user(*board, own.threads[userThread], static_cast<std::uint32_t>(board->seed + process));
    for (const Stage half : {Stage::firstHalf, Stage::secondHalf}) {
        while (board->stage < half) rest(thread);
        workHalf(thread, process, half, known);
        own.holdings[own.halvesDone] = settledHoldings();
        ++own.halvesDone;
    }
    while (board->stage < Stage::lastPins) rest(thread);
    if (process == 0) enterWrongPins(thread, known);
}

} // namespace quelta::soak
