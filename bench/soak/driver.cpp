#include "soak/report.h"
#include "soak/soak.h"
#include "soak/weather.h"

#include <cstdio>
#include <functional>

namespace quelta::soak {

namespace {

constexpr ULONGLONG patience = 60'000;
constexpr ULONGLONG progressEvery = 10'000;

File startProcess(std::wstring commandLine, const std::filesystem::path& outputPath)
{
    // The module prints where it can't write its log.
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const File output = fileOf(CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output.get();
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started))
        throw std::runtime_error("A process can't be started: Windows error " + std::to_string(GetLastError()));
    CloseHandle(started.hThread);
    return File(started.hProcess);
}

std::optional<DWORD> exitCode(const File& process)
{
    DWORD code = 0;
    const bool ended = WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0 && GetExitCodeProcess(process.get(), &code);
    return ended ? std::optional(code) : std::nullopt;
}

class Driver {
public:
    explicit Driver(const Options& options)
        : options_(options),
          boardName_(L"quelta-soak-" + std::to_wstring(GetCurrentProcessId())),
          board_(boardName_, true),
          weather_(*board_, options.seed, options.folder / "Oskvar")
    {
        board_->seed = options.seed;
    }

    int run()
    {
        wchar_t self[MAX_PATH + 1]{};
        GetModuleFileNameW(nullptr, self, MAX_PATH);
        for (std::size_t i = 0; i < workingProcesses; ++i)
            processes_.push_back(
                startProcess(L"\"" + std::wstring(self) + L"\" --board " + boardName_ + L" --process " + std::to_wstring(i),
                             options_.folder / ("process-" + std::to_string(i + 1) + ".txt")));
        if (half(Stage::firstHalf, 1) && half(Stage::secondHalf, 2) && lastPins()) judgeProcesses();
        board_->stage = Stage::over;
        // Whoever hangs lets go of the token with that, if of nothing else.
        for (const File& process : processes_) TerminateProcess(process.get(), 1);
        weather_.stop();
        const auto found = summary(*board_, options_, weather_.counts(), findings_);
        std::printf("%s", options_.json ? (found.dump(2) + "\n").c_str() : table(found).c_str());
        return found["held"] ? 0 : 1;
    }

private:
    bool half(Stage stage, int halvesDone)
    {
        if (!weatherTurns(Season::cleared)) return false;
        board_->stage = stage;
        weather_.want(Season::changing);
        const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(options_.minutes * 30'000);
        if (!goesOnUntil([&] { return GetTickCount64() >= end; })) return false;
        board_->stage = static_cast<Stage>(static_cast<int>(stage) + 1);
        return weatherTurns(Season::resting) && goesOnUntil([&] {
                   return std::ranges::all_of(board_->processes,
                                              [&](const auto& process) { return process.halvesDone == halvesDone; });
               });
    }

    bool weatherTurns(Season season)
    {
        weather_.want(season);
        return goesOnUntil([&] { return weather_.has(season); });
    }

    // They are counted where no right PIN comes after them and gives the attempts back.
    bool lastPins()
    {
        constexpr int wanted = 5;
        if (!weatherTurns(Season::wrongPinsAlone)) return false;
        const auto before = board_->wrongDone.load();
        board_->stage = Stage::lastPins;
        if (!goesOnUntil([&] {
                return std::ranges::all_of(processes_, [](const File& process) { return exitCode(process).has_value(); });
            }))
            return false;
        const auto entered = static_cast<int>(board_->wrongDone - before);
        if (entered != wanted || weather_.attemptsLost() != wanted)
            find("quelta_validatePassword was given " + std::to_string(weather_.attemptsLost()) +
                 " wrong PINs in the end in place of " + std::to_string(wanted) + ", of which " + std::to_string(entered) +
                 " were entered: look at who calls it, and when");
        return true;
    }

    bool goesOnUntil(const std::function<bool()>& isEnd)
    {
        while (!isEnd()) {
            Sleep(100);
            tellProgress();
            if (somethingHangs() || somethingDied()) return false;
        }
        return true;
    }

    // One that stands still is the cause of others, or their victim: all of them are told.
    bool somethingHangs()
    {
        ULONGLONG longest = 0;
        forEachThread([&](const std::string&, ThreadBoard& thread) { longest = std::max(longest, stillFor(thread)); });
        if (longest < patience) return false;
        forEachThread([&](const std::string& who, ThreadBoard& thread) {
            if (stillFor(thread) > patience / 2)
                find(callOf(thread) + " (token: " + weatherNow(*board_).name + ") hangs in " + who +
                     ": repeat it, and look at all threads with winedbg");
        });
        return true;
    }

    template <class Function>
    void forEachThread(Function function)
    {
        function("the soak's own process", board_->driver);
        for (std::size_t process = 0; process < workingProcesses; ++process)
            for (std::size_t thread = 0; thread <= mainThread; ++thread)
                function("thread " + std::to_string(thread + 1) + " of process " + std::to_string(process + 1),
                         board_->processes[process].threads[thread]);
    }

    static ULONGLONG stillFor(ThreadBoard& thread)
    {
        const ULONGLONG now = GetTickCount64();
        if (!thread.working || thread.seenAt == 0 || thread.seenCount != thread.count) {
            thread.seenAt = now;
            thread.seenCount = thread.count;
        }
        return now - thread.seenAt;
    }

    bool somethingDied()
    {
        bool found = false;
        for (std::size_t i = 0; i < workingProcesses; ++i) {
            const auto code = exitCode(processes_[i]);
            if (!code || (*code == 0 && board_->stage == Stage::lastPins)) continue;
            const std::string name = std::to_string(i + 1);
            std::string what = "Process " + name + " ended with " + nameOfCode(static_cast<Code>(*code)) + ", its threads in";
            for (std::size_t thread = 0; thread < threadsEach; ++thread) {
                what += thread == 0 ? " " : ", ";
                what += callOf(board_->processes[i].threads[thread]);
            }
            find(what.append(": see build/soak/process-").append(name).append(".txt, and repeat it under winedbg"));
            found = true;
        }
        return found;
    }

    void judgeProcesses()
    {
        const auto& threads = board_->processes[workingProcesses - 1].threads;
        if (std::ranges::all_of(threads, [](const ThreadBoard& thread) { return thread.unloadings == 0; }))
            find("The module was never unloaded: soak for longer, or look who keeps it");
        // Each of the soak's own threads and locks gets an event, and keeps it, when it is fought over for the first time; the
        // heaps' last few kilobytes are the system's.
        constexpr bench::Holdings oursAndSystems{0, threadsEach + 2, 0, 8};
        for (std::size_t i = 0; i < workingProcesses; ++i) {
            const auto& [first, second] = board_->processes[i].holdings;
            for (std::size_t kind = 0; kind < first.size(); ++kind)
                if (const auto more = second[kind] - first[kind]; more > oursAndSystems[kind])
                    find("Process " + std::to_string(i + 1) + " holds " + std::to_string(more) + " more " +
                         bench::holdingNames[kind] +
                         " after the second half than after the first: look for what is not released");
        }
    }

    void tellProgress()
    {
        const ULONGLONG now = GetTickCount64();
        if (!options_.progress || now - lastProgress_ < progressEvery) return;
        lastProgress_ = now;
        std::fprintf(stderr, "%llu s: %llu calls, the token is %s\n", (now - begin_) / 1000, callsOn(*board_),
                     weatherNow(*board_).name);
    }

    static std::string callOf(const ThreadBoard& thread) { return std::string(calls[thread.call].name); }
    void find(const std::string& what) { findings_.push_back(what); }

    const Options& options_;
    const std::wstring boardName_;
    const SharedBoard board_;
    WeatherMaker weather_;
    std::vector<File> processes_;
    std::vector<std::string> findings_;
    const ULONGLONG begin_ = GetTickCount64();
    ULONGLONG lastProgress_ = begin_;
};

} // namespace

int drive(const Options& options)
{
    // The working processes inherit it: their logs are in a folder of the soak's own, which is deleted under them.
    for (const wchar_t* name : {L"TMP", L"TEMP"}) SetEnvironmentVariableW(name, options.folder.c_str());
    std::fprintf(stderr, "seed %lu\n", static_cast<unsigned long>(options.seed));
    return Driver(options).run();
}

} // namespace quelta::soak
