#include "tools/check/check.h"

#include "base/table.h"
#include "common/text.h"
#include "tools/check/steps.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"
#include "tools/token/provider_log.h"
#include "version.h"

#include <array>
#include <deque>
#include <fstream>
#include <optional>

namespace quelta::tools {

namespace {

constexpr std::size_t linesOfEachLog = 20;

struct Word {
    Finding finding;
    const char* text;
    const char* json;
};

constexpr Word words[] = {
    {Finding::ok, "ok      ", "ok"},
    {Finding::note, "note    ", "note"},
    {Finding::failed, "FAILED  ", "failed"},
    {Finding::leftOut, "--      ", "left out"},
};

Found lookAt(const CheckStep& step, Examination& examination)
{
    try {
        return step.look(examination);
    } catch (const Failure& failure) {
        return {Finding::failed, failure.what()};
    }
}

void lookAtAll(std::span<const CheckStep> steps, Examination& examination, Answer& answer)
{
    for (const CheckStep& step : steps) {
        const Found found = lookAt(step, examination);
        const Word& word = *findRow(words, &Word::finding, found.finding);
        answer.lines.push_back(word.text + std::string(step.name) + ": " + found.text);
        answer.json["steps"].push_back({{"step", step.name}, {"result", word.json}, {"text", found.text}});
        if (found.finding == Finding::failed) answer.status = exitFailed;
    }
}

std::string computerName()
{
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> name{};
    auto size = static_cast<DWORD>(name.size());
    GetComputerNameW(name.data(), &size);
    return toUtf8(name.data());
}

// Errors alone: at the loudest level the other lines have keys in clear.
std::deque<std::string> lastErrors(const std::filesystem::path& log)
{
    std::deque<std::string> lines;
    std::ifstream file(log, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (line.find("->ERROR ::=>") == std::string::npos) continue;
        lines.push_back(line);
        if (lines.size() > linesOfEachLog) lines.pop_front();
    }
    return lines;
}

// The newest log of a program is the one whose name, a date, comes last.
std::filesystem::path newestLogIn(const std::filesystem::path& folder)
{
    std::filesystem::path newest;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
        if (entry.path().filename() > newest.filename()) newest = entry.path();
    return newest;
}

std::string logsText()
{
    std::string text;
    std::error_code ignored;
    for (const auto& program : std::filesystem::directory_iterator(logFolder(), ignored)) {
        const auto log = newestLogIn(program.path());
        const auto lines = lastErrors(log);
        if (lines.empty()) continue;
        text += "\nlast errors in " + nameOf(log) + "\n";
        for (const std::string& line : lines) text += "  " + line + "\n";
    }
    return text;
}

void writeReport(OutputFile& file, const Answer& answer)
{
    std::string text =
        "quelta check, version " + std::string(version) + ", " + timeText(timeNow()) + ", on " + computerName() + "\n\n";
    for (const std::string& line : answer.lines) text += line + "\n";
    file.write(toBytes(text + logsText()));
    file.commit();
}

} // namespace

Answer check(const CheckOptions& options)
{
    std::optional<OutputFile> report;
    if (!options.report.empty()) report.emplace(pathOf(options.report));
    Examination examination{options};
    if (!options.pin.isDialog()) examination.pin = readPin(options.pin);
    Answer answer;
    answer.json["steps"] = Json::array();
    lookAtAll(installationSteps(), examination, answer);
    lookAtAll(tokenSteps(), examination, answer);
    answer.lines.emplace_back(answer.status == exitDone ? "All is well."
                                                        : "Not all is well: see the lines that begin with FAILED.");
    answer.json["well"] = answer.status == exitDone;
    if (report) writeReport(*report, answer);
    answer.toErrors = isStandardStream(pathOf(options.report));
    return answer;
}

} // namespace quelta::tools
