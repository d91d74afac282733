
#include "base/table.h"
#include "common/files.h"
#include "common/text.h"
#include "tools/check/steps.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/provider_log.h"
#include "tools/console/text.h"
#include "version.h"

#include <algorithm>
#include <array>

namespace quelta::tools {

namespace {

constexpr std::size_t linesOfEachLog = 20;
constexpr std::string_view libraryStarts =
    "        The next steps call QueltaDSCLibrary.dll. If no line that begins with \"Result\" follows, the library has crashed, "
    "or it "
    "hangs: pull the token and try again, then install the maker's library anew, then ask the maker.";

struct Word {
    Verdict verdict;
    const char* text;
    const char* json;
};

constexpr Word words[] = {
    {Verdict::ok, "ok      ", "ok"},
    {Verdict::note, "note    ", "note"},
    {Verdict::failed, "FAILED  ", "failed"},
    {Verdict::leftOut, "--      ", "left out"},
};

bool hasCertificate(const Examination& examination)
{
    return std::ranges::any_of(examination.keys, [](const ListedKey& row) { return row.key.certificate != nullptr; });
}

// Returns why a step can't be done; empty if it can.
std::string_view lackFor(Need need, const Examination& examination)
{
    if (need >= Need::fittingFiles && !examination.filesFit) return "the module and the device library must be in order first";
    if (need >= Need::module && !examination.loaded) return "the module can't be loaded";
    if (need >= Need::registration && !examination.registered) return "the registration for CryptoAPI must be in order first";
    if (need >= Need::token && !examination.csp) return "there is no token to look at";
    if (need >= Need::key && examination.keys.empty()) return "the token holds no key";
    if (need >= Need::certificate && !hasCertificate(examination)) return "there is no certificate to look at";
    if (need >= Need::pin && !examination.options.withPin) return "no PIN was given";
    if (need >= Need::pin && !examination.pinAccepted) return "there is no PIN that the token accepted";
    return {};
}

Found lookAt(const CheckStep& step, Examination& examination)
{
    if (const auto lack = lackFor(step.need, examination); !lack.empty()) return {Verdict::leftOut, std::string(lack)};
    try {
        return step.look(examination);
    } catch (const Failure& failure) {
        return {Verdict::failed, failure.what()};
    }
}

std::string computerName()
{
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> name{};
    auto size = static_cast<DWORD>(name.size());
    GetComputerNameW(name.data(), &size);
    return toUtf8(name.data());
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
        // Only error lines are copied: at level 3 other lines hold keys in clear.
        const auto lines = errorLinesIn(log);
        if (!lines.empty()) text += "\nlast errors in " + nameOf(log) + "\n";
        for (const std::string& line : std::span(lines).last(std::min(lines.size(), linesOfEachLog))) text += "  " + line + "\n";
    }
    return text;
}

class Findings {
public:
    explicit Findings(const CheckOptions& options) : json_(options.json), reportName_(options.report)
    {
        outcome_.json["steps"] = Json::array();
        if (reportName_.empty()) return;
        const std::filesystem::path path = pathOf(reportName_);
        report_ = fileOf(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
        if (!report_) giveUpReport();
        write("quelta check, version " + std::string(version) + ", " + timeText(timeNow()) + ", on " + computerName() + "\n\n");
    }
    void lookAtAll(std::span<const CheckStep> steps, Examination& examination)
    {
        for (const CheckStep& step : steps) add(step.name, lookAt(step, examination));
    }
    void say(const std::string& line)
    {
        if (!json_) printLine(line);
        write(line + "\n");
    }
    Outcome finish()
    {
        write(logsText());
        if (!reportFault_.empty()) add("report", {Verdict::failed, reportFault_});
        const bool well = outcome_.status == exitDone;
        say(!well    ? "Result: not all is well; see the lines that begin with FAILED"
            : noted_ ? "Result: nothing failed; see also the lines that begin with note"
                     : "Result: all is well");
        outcome_.json["well"] = well;
        return std::move(outcome_);
    }

private:
    void add(const std::string& step, const Found& found)
    {
        const Word& word = *findRow(words, &Word::verdict, found.verdict);
        outcome_.json["steps"].push_back({{"step", step}, {"result", word.json}, {"text", found.text}});
        if (found.verdict == Verdict::failed) outcome_.status = exitFailed;
        noted_ |= found.verdict == Verdict::note;
        say(word.text + step + ": " + found.text);
    }
    void write(const std::string& text)
    {
        if (report_ && !writeAll(report_, toBytes(text))) giveUpReport();
    }
    // A report that can't be written does not cost the findings.
    void giveUpReport()
    {
        reportFault_ = failureText("can't write " + reportName_, GetLastError());
        report_.reset();
    }

    bool json_;
    std::string reportName_;
    File report_;
    std::string reportFault_;
    bool noted_ = false;
    Outcome outcome_;
};

} // namespace

Outcome check(const CheckOptions& options)
{
    Examination examination{options};
    if (!options.pin.isDialog()) examination.pin = readPin(options.pin);
    Findings findings(options);
    findings.lookAtAll(fileSteps(), examination);
    if (examination.filesFit) findings.say(std::string(libraryStarts));
    findings.lookAtAll(loadingSteps(), examination);
    if (!options.installationOnly) findings.lookAtAll(tokenSteps(), examination);
    return findings.finish();
}

} // namespace quelta::tools
