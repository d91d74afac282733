#include "base/windows_objects.h"
#include "soak/soak.h"
#include "store/pin.h"
#include "store/token_store.h"
#include "support/child_process.h"

#include <process.h>

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <thread>

namespace quelta::soak {

using namespace softtoken;

namespace {

constexpr ULONGLONG patience = 30'000;
// Wrong PINs never use up this many attempts, so only the driver locks the token.
constexpr int attempts = 1000;
constexpr DWORD tick = 100;

class Driver {
public:
    Driver(std::filesystem::path folder, double minutes, std::uint32_t seed) : folder_(std::move(folder)), random_(seed)
    {
        board_.minutes = minutes;
        board_.seed = seed;
        for (std::size_t i = 0; i < workers; ++i) {
            const auto process = _wspawnl(_P_NOWAIT, test::ownExecutable().c_str(), L"quelta-soak", boardName_.c_str(),
                                          std::to_wstring(i).c_str(), nullptr);
            if (process == -1) throw std::runtime_error("a worker can't be started");
            processes_.emplace_back(reinterpret_cast<HANDLE>(process));
        }
    }

    int run()
    {
        std::jthread watchdog([this](const std::stop_token& stop) { watch(stop); });
        round(Stage::firstRound, Stage::firstRest);
        round(Stage::secondRound, Stage::secondRest);
        countWrongPins();
        for (const File& process : processes_)
            if (WaitForSingleObject(process.get(), patience) != WAIT_OBJECT_0) giveUp("A worker does not end");
        watchdog = {};
        return report(board_, folder_, findings_);
    }

private:
    void round(Stage work, Stage rest)
    {
        change(signedOn, true);
        board_.stage = work;
        const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(board_.minutes * 30'000);
        while (GetTickCount64() < end) {
            const auto row = static_cast<StateRow>(next_++ % givenAnotherPin + signedOn);
            change(row);
            // This counts sleeps, not time. While the machine stands still, the module can't look at the token either.
            for (auto left = states[row].shortest + below(states[row].longest - states[row].shortest); left > 0; --left)
                Sleep(tick);
        }
        board_.stage = rest;
        change(signedOn);
        await(work);
    }

    // The driver uses the token's own functions. A start of quelta-token takes longer than some states last.
    void change(StateRow row, bool nobodyWorks = false)
    {
        board_.moment = ++moments_ * 16 + changing;
        if (row == givenAnotherPin) board_.pin = 1 - board_.pin;
        changeToken(tokenFolder(), [&](StoredToken& token) {
            token.plugged = token.singleSignOnEnabled = token.singleSignOnOpen = true;
            token.pin = pins_[board_.pin];
            removeLeftovers(token, nobodyWorks);
            states[row].change(token);
            return true;
        });
        board_.moment = ++moments_ * 16 + row;
        ++board_.changes[row];
    }

    // Imported keys and those of CryptGenKey are not used again. Keys of key storage are deleted by their makers, if the token is
    // there.
    static void removeLeftovers(StoredToken& token, bool nobodyWorks)
    {
        std::erase_if(token.aesKeys, [](const auto& key) { return key.label != "wrapping"; });
        std::erase_if(token.keyPairs, [&](const auto& pair) {
            return pair.label != "rsa" && (nobodyWorks || pair.algorithm == algorithmRsa2048);
        });
    }

    void countWrongPins()
    {
        change(signedOff, true);
        const auto tokenHas = [] { return readToken(tokenFolder()).value()->wrongPins; };
        const std::uint64_t before = board_.wrongPins - tokenHas();
        board_.stage = Stage::quiet;
        await(Stage::quiet);
        if (board_.wrongPins - tokenHas() != before)
            findings_.emplace_back("While nobody else called, the token got another number of wrong PINs than were entered: look "
                                   "at who calls quelta_validatePassword, and with which PIN");
    }

    // A worker may need a minute to compare what it holds.
    void await(Stage stage)
    {
        const ULONGLONG end = GetTickCount64() + 300'000;
        for (std::size_t i = 0; i < workers; ++i)
            for (; board_.workers[i].finished < stage; Sleep(tick))
                if (GetTickCount64() > end) giveUp("Worker " + std::to_string(i + 1) + " does not come to an end");
    }

    // Runs on a thread of its own. A call that hangs may hold the token's lock, for which the driver waits.
    void watch(const std::stop_token& stop)
    {
        for (; !stop.stop_requested(); Sleep(tick)) {
            for (std::size_t i = 0; i < workers; ++i) {
                DWORD code = STILL_ACTIVE;
                GetExitCodeProcess(processes_[i].get(), &code);
                if (code != STILL_ACTIVE && (code != 0 || board_.workers[i].finished != Stage::quiet))
                    giveUp("Worker " + std::to_string(i + 1) + " ended with exit code " + std::to_string(code));
                for (const ThreadLine& thread : board_.workers[i].threads)
                    if (const ULONGLONG since = thread.since; since != 0 && since + patience < GetTickCount64())
                        giveUp(std::string(calls[thread.call].name) + " hangs in worker " + std::to_string(i + 1));
            }
        }
    }

    // Names all running calls, since the call that hangs may wait for another one.
    [[noreturn]] void giveUp(std::string what)
    {
        what.append(" (token: ").append(stateAt(board_.moment).name).append("); the calls at that time: ");
        for (std::size_t i = 0; i < workers; ++i)
            for (const ThreadLine& thread : board_.workers[i].threads)
                if (const ULONGLONG since = thread.since)
                    what += std::string(calls[thread.call].name) + " in worker " + std::to_string(i + 1) + " for " +
                            std::to_string(GetTickCount64() - since) + " ms, ";
        what += "see build/soak/worker-*.txt, and repeat it under winedbg";
        for (const File& process : processes_) TerminateProcess(process.get(), 1);
        findings_.push_back(what);
        std::_Exit(report(board_, folder_, findings_));
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }

    const std::filesystem::path folder_;
    const std::wstring boardName_ = L"quelta-soak-" + std::to_wstring(GetCurrentProcessId());
    Board& board_ = sharedBoard(boardName_);
    std::mt19937 random_;
    const StoredPin pins_[2] = {newPin(pins[0], attempts), newPin(pins[1], attempts)};
    std::vector<File> processes_;
    std::uint32_t moments_ = 0;
    unsigned next_ = 0;
    std::vector<std::string> findings_;
};

} // namespace

Board& sharedBoard(const std::wstring& name)
{
    const HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Board), name.c_str());
    void* const board = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Board));
    if (!board) throw std::runtime_error("no shared memory: Windows error " + std::to_string(GetLastError()));
    return *static_cast<Board*>(board);
}

int drive(const std::filesystem::path& folder, double minutes, std::uint32_t seed)
{
    // The workers inherit the folder for their logs.
    for (const wchar_t* name : {L"TMP", L"TEMP"}) SetEnvironmentVariableW(name, folder.c_str());
    return Driver(folder, minutes, seed).run();
}

} // namespace quelta::soak
