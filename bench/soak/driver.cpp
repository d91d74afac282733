#include "soak/report.h"
#include "soak/soak.h"
#include "soak/weather.h"

#include <cstdio>
#include <functional>
#include <limits>

namespace quelta::soak {

namespace {

constexpr ULONGLONG patience = 60'000;
constexpr ULONGLONG progressEvery = 10'000;
// In shorter runs chance may leave something out.
constexpr double minutesForAll = 1;

// Whatever is in it ends with this process, however that ends.
File jobOfOwn()
{
    File job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits))
        throw std::runtime_error("no job for the processes: Windows error " + std::to_string(GetLastError()));
    return job;
}

File startProcess(const File& job, std::wstring commandLine, const std::filesystem::path& outputPath)
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
    File process(started.hProcess);
    if (!AssignProcessToJobObject(job.get(), process.get()))
        throw std::runtime_error("A process can't be put into the job: Windows error " + std::to_string(GetLastError()));
    return process;
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
                startProcess(job_, L"\"" + std::wstring(self) + L"\" --board " + boardName_ + L" --process " + std::to_wstring(i),
                             options_.folder / ("process-" + std::to_string(i + 1) + ".txt")));
        const bool played = half(Stage::firstHalf) && half(Stage::secondHalf) && lastAct() && weatherTurns(Season::cleared);
        board_->stage = Stage::over;
        if (played && goesOnUntil([&] { return std::ranges::all_of(processes_, &Driver::hasEnded); })) judgeProcesses();
        // Whoever hangs lets go of the token with that, if of nothing else.
        for (const File& process : processes_) TerminateProcess(process.get(), 1);
        weather_.stop();
        if (played && options_.minutes >= minutesForAll) judgeCoverage();
        const auto found = summary(*board_, options_, weather_.disturbances(), findings_);
        std::printf("%s", options_.json ? (found.dump(2) + "\n").c_str() : table(found).c_str());
        return found["held"] ? 0 : 1;
    }

private:
    static bool hasEnded(const File& process) { return exitCode(process).has_value(); }

    bool half(Stage stage)
    {
        if (!weatherTurns(Season::cleared)) return false;
        board_->stage = stage;
        weather_.want(Season::changing);
        const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(options_.minutes * 30'000);
        if (!goesOnUntil([&] { return GetTickCount64() >= end; })) return false;
        board_->stage = static_cast<Stage>(static_cast<int>(stage) + 1);
        return weatherTurns(Season::resting) && stepIsDone();
    }

    // The first step is to come to life.
    bool stepIsDone()
    {
        ++steps_;
        return goesOnUntil([&] {
            return std::ranges::all_of(board_->processes,
                                       [&](const ProcessBoard& process) { return process.stepsDone > steps_; });
        });
    }

    bool weatherTurns(Season season)
    {
        weather_.want(season);
        return goesOnUntil([&] { return weather_.has(season); });
    }

    bool lastAct()
    {
        constexpr std::pair<Season, Stage> scenes[] = {
            {Season::resting, Stage::fresh},     {Season::wrongPinsAlone, Stage::wrong}, {Season::lastAttempts, Stage::locked},
            {Season::signedOff, Stage::given},   {Season::anotherPin, Stage::stale},     {Season::pulled, Stage::pulled},
            {Season::signedOff, Stage::plugged},
        };
        return std::ranges::all_of(scenes, [&](const auto& scene) {
            if (!weatherTurns(scene.first)) return false;
            board_->stage = scene.second;
            return stepIsDone();
        });
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
        forEachThread([&](const std::string&, ThreadBoard& thread, bool watched) {
            longest = std::max(longest, stillFor(thread, watched));
        });
        if (longest < patience) return false;
        forEachThread([&](const std::string& who, ThreadBoard& thread, bool watched) {
            if (stillFor(thread, watched) > patience / 2)
                find(callOf(thread) + " (token: " + weatherNow(*board_).name + ") hangs in " + who +
                     ": repeat it, and look at all threads with winedbg");
        });
        return true;
    }

    // A main thread is watched from the start of its process to its end, the others while they work.
    template <class Function>
    void forEachThread(Function function)
    {
        function("the soak's own process", board_->driver, board_->driver.working);
        for (std::size_t process = 0; process < workingProcesses; ++process) {
            for (std::size_t number = 0; number <= mainThread; ++number) {
                ThreadBoard& thread = board_->processes[process].threads[number];
                function("thread " + std::to_string(number + 1) + " of process " + std::to_string(process + 1), thread,
                         number == mainThread ? !hasEnded(processes_[process]) : thread.working.load());
            }
        }
    }

    static ULONGLONG stillFor(ThreadBoard& thread, bool watched)
    {
        const ULONGLONG now = GetTickCount64();
        if (!watched || thread.seenAt == 0 || thread.seenCount != thread.count) {
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
            if (!code || (*code == 0 && board_->stage == Stage::over)) continue;
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
        // Loaded, the heap is the module's to use; a thread of it is the monitor, with what it brings along.
        constexpr std::ptrdiff_t anyNumber = std::numeric_limits<std::ptrdiff_t>::max();
        constexpr bench::Holdings loaded{0, threadsEach + 2, 0, anyNumber}, modules{1, 6, 0, anyNumber};
        for (std::size_t i = 0; i < workingProcesses; ++i) {
            const ProcessBoard& process = board_->processes[i];
            judgeHoldings(i, process.unloaded[1], process.unloaded[0], oursAndSystems,
                          "after the second half than after the first");
            if (!keepsModule(i)) continue;
            judgeHoldings(i, process.loaded[1], process.loaded[0], loaded, "after the second half, with the module still loaded");
            judgeHoldings(i, process.loaded[1], process.unloaded[1], modules, "with the module loaded than without");
        }
    }

    void judgeHoldings(std::size_t process, const bench::Holdings& now, const bench::Holdings& then,
                       const bench::Holdings& tolerated, const char* when)
    {
        for (std::size_t kind = 0; kind < now.size(); ++kind)
            if (const auto more = now[kind] - then[kind]; more > tolerated[kind])
                find("Process " + std::to_string(process + 1) + " holds " + std::to_string(more) + " more " +
                     bench::holdingNames[kind] + " " + when + ": look for what is not released");
    }

    void judgeCoverage()
    {
        const Disturbances& done = weather_.disturbances();
        for (std::size_t row = 1; row < std::size(calls); ++row)
            if (timesDone(*board_, row) == 0)
                find(std::string(calls[row].name) + " was never done: soak for longer, or look why");
        for (std::size_t row = 1; row < allWeathers().size(); ++row)
            if (done.weathers[row] == 0)
                find(std::string("The token was never ") + allWeathers()[row].name + ": soak for longer");
        if (done.deletions == 0) find("The log's folder was never deleted: soak for longer, or look who keeps it");
        if (done.levels == 0) find("The log's level was never changed: soak for longer");
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
    const File job_ = jobOfOwn();
    std::vector<File> processes_;
    int steps_ = 0;
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
