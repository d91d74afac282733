#include "calls.h"
#include "measure.h"
#include "sections.h"

#include "log/log_writer.h"

#include <fstream>

namespace quelta::bench {

namespace {

std::string todaysLog()
{
    LogPath folder{};
    getLogBaseFolderPath(folder);
    SYSTEMTIME now{};
    GetLocalTime(&now);
    char date[32];
    std::snprintf(date, sizeof date, "%04d-%02d-%02d.LOG", now.wYear, now.wMonth, now.wDay);
    return std::string(folder.data()) + "/Oskvar/" + getProcessName() + "/" + date;
}

std::ptrdiff_t linesInLog()
{
    std::ifstream log(todaysLog(), std::ios::binary);
    return std::count(std::istreambuf_iterator<char>(log), {}, '\n');
}

double rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

void readLevel()
{
    static_cast<void>(getLogLevel());
}

void writeLine()
{
    logDebug("a line of about the length that is usual: ", 4711);
}

// Returns how many lines a call passes to the log. Each line reads the level, even if it is not written.
std::ptrdiff_t linesOf(const Operation& operation)
{
    const LogLevel set(3);
    const std::ptrdiff_t before = linesInLog();
    operation.call();
    return linesInLog() - before;
}

} // namespace

Figures measureOverhead(const std::string& pin)
{
    OpenModule module(pin);
    Figures figures{"What the module adds to a call, in microseconds, by the log's level",
                    {{"interface", "interface"},
                     {"call", "call"},
                     {"lines", "lines of log"},
                     {"level0", "level 0", 1},
                     {"level2", "level 2", 1},
                     {"level3", "level 3", 1},
                     {"read", "one registry read", 1},
                     {"line", "a written line", 1},
                     {"ratio2", "of its reads", 2},
                     {"ratio3", "of its lines", 2}}};
    for (const Operation& operation : module.operations()) {
        const auto lines = static_cast<double>(linesOf(operation));
        nlohmann::ordered_json row = {{"interface", operation.interfaceName}, {"call", operation.name}, {"lines", lines}};
        for (const DWORD level : {0U, 2U, 3U}) {
            const LogLevel set(level);
            const auto times = sideBySide({operation.call, level == 3 ? writeLine : readLevel});
            row["level" + std::to_string(level)] = rounded(times[0]);
            if (level == 0) continue;
            row[level == 2 ? "read" : "line"] = rounded(times[1]);
            row["ratio" + std::to_string(level)] = rounded(times[0] / (lines * times[1]));
        }
        figures.rows.push_back(row);
    }
    figures.note =
        "Each log line reads the level from the registry, written or not: a call can't be faster than its registry reads, "
        "or at level 3 than all its lines.";
    return figures;
}

Figures measureRatio(const std::string& pin)
{
    OpenModule module(pin);
    Figures figures{"Above the software token, in microseconds, at level 2",
                    {{"interface", "interface"},
                     {"call", "call"},
                     {"module", "through the module", 1},
                     {"bare", "of the library alone", 1},
                     {"reads", "registry reads", 1},
                     {"ratio", "ratio", 3},
                     {"rest", "less the reads", 3}}};
    for (const Operation& operation : module.operations()) {
        if (!operation.bare) continue;
        const auto lines = static_cast<double>(linesOf(operation));
        const LogLevel set(2);
        const auto times = sideBySide({operation.call, operation.bare, readLevel});
        const double reads = lines * times[2];
        figures.rows.push_back({{"interface", operation.interfaceName},
                                {"call", operation.name},
                                {"module", rounded(times[0])},
                                {"bare", rounded(times[1])},
                                {"reads", rounded(reads)},
                                {"ratio", rounded(times[0] / times[1])},
                                {"rest", rounded((times[0] - reads) / times[1])}});
    }
    return figures;
}

} // namespace quelta::bench
