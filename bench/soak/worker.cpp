#include "soak/jobs.h"
#include "soak/soak.h"
#include "support/holdings.h"

#include <cstdio>
#include <functional>
#include <iterator>
#include <stdexcept>

namespace quelta::soak {

using test::Holdings;

namespace {

constexpr const char moduleName[] = "QueltaCSP.dll";

bool moduleIsLoaded()
{
    return GetModuleHandleA(moduleName) != nullptr;
}

// The first call only stores the holdings in `before`. Idle threads of the process's pool end by themselves after some seconds.
void compareHoldings(Holdings& before, const Holdings& tolerated, const std::string& when)
{
    const bool first = before == Holdings{};
    Holdings most{}, now = test::holdings();
    std::ranges::transform(before, tolerated, most.begin(), std::plus());
    for (int tries = first ? 14 : 60; tries > 0 && !test::nothingMore(now, most); --tries) {
        Sleep(500);
        std::ranges::transform(now, test::holdings(), now.begin(), [](auto a, auto b) { return std::min(a, b); });
    }
    for (std::size_t kind = 0; kind < now.size() && !first; ++kind)
        if (now[kind] > most[kind])
            find("A worker holds " + std::to_string(now[kind]) + " " + test::holdingNames[kind] + " " + when +
                 " after the second round, " + std::to_string(before[kind]) + " after the first: look for what is not released");
    before = now;
}

class Worker {
public:
    Worker(Board& board, std::size_t number) : board_(board), line_(board.workers[number]), number_(number) {}

    void run()
    {
        for (const Stage round : {Stage::firstRound, Stage::secondRound}) {
            await(round);
            workRound(round);
            line_.finished = round;
        }
        await(Stage::quiet);
        Caller caller(board_, line_.threads[threadsEach], board_.seed);
        enterWrongPins(caller);
        line_.finished = Stage::quiet;
    }

private:
    void await(Stage stage) const
    {
        while (board_.stage < stage) Sleep(20);
    }

    void workRound(Stage round)
    {
        // The last process keeps no module loaded, so that the module is loaded and unloaded again and again.
        const HMODULE kept = number_ + 1 < workers ? LoadLibraryA(moduleName) : nullptr;
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < (kept ? threadsEach : threadsEach / 2); ++i)
            threads.emplace_back([this, round, i, kept] { workInSessions(round, i, kept ? 20 : 200); });
        threads.clear();
        // The soak's own locks have a few handles. The system keeps a few kilobytes, and the loaded module some more.
        if (kept) {
            compareHoldings(loaded_, {0, 8, 0, 64}, "with the module loaded");
            Caller(board_, line_.threads[threadsEach], 0).ask("FreeLibrary", [&] { return FreeLibrary(kept); });
        }
        if (moduleIsLoaded()) find("The module stays loaded although everything was released");
        compareHoldings(unloaded_, {0, 8, 0, 16}, "with the module unloaded");
    }

    // Each session has a thread of its own, so that leaks of a thread add up.
    void workInSessions(Stage round, std::size_t row, DWORD longestPause)
    {
        std::mt19937 random(static_cast<unsigned>(board_.seed + 1000 * number_ + 10 * row) + static_cast<unsigned>(round));
        while (board_.stage == round) {
            std::jthread([&, seed = random()] {
                Caller caller(board_, line_.threads[row], seed);
                useInterface(caller);
            }).join();
            Sleep(random() % longestPause);
            if (!moduleIsLoaded()) ++board_.unloadings;
        }
    }

    Board& board_;
    WorkerLine& line_;
    const std::size_t number_;
    Holdings loaded_{}, unloaded_{};
};

} // namespace

void work(const std::wstring& name, std::size_t number)
{
    // Otherwise Wine would start a debugger at a crash and show a window, and the process would wait for both.
    SetErrorMode(SEM_NOGPFAULTERRORBOX);
    const std::filesystem::path folder = _wgetenv(L"TMP");
    _wfreopen((folder / ("worker-" + std::to_string(number + 1) + ".txt")).c_str(), L"w", stdout);
    readToken();
    Board& board = sharedBoard(name);
    const std::jthread user = startUser(board);
    if (number >= std::size(board.workers)) throw std::out_of_range("There is no worker of this number.");
    Worker(board, number).run();
}

} // namespace quelta::soak
