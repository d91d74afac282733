#include "soak/report.h"

#include "soak/thread.h"
#include "soak/weather.h"

#include <iomanip>
#include <map>
#include <sstream>

namespace quelta::soak {

using Json = nlohmann::ordered_json;

namespace {

std::vector<const ThreadBoard*> threadsOn(const Board& board)
{
    std::vector<const ThreadBoard*> all{&board.driver};
    for (const auto& process : board.processes)
        for (const auto& thread : process.threads) all.push_back(&thread);
    return all;
}

template <class Value>
std::uint64_t sum(const Board& board, Value value)
{
    std::uint64_t total = 0;
    for (const ThreadBoard* thread : threadsOn(board)) total += value(*thread);
    return total;
}

Json outcomesOf(const Board& board, std::size_t row)
{
    Json refused = Json::object();
    for (std::size_t i = 0; i < mostRefusals; ++i) {
        const auto times = sum(board, [=](const auto& thread) { return thread.outcomes[row].refused[i]; });
        if (times > 0) refused[nameOfCode(calls[row].refusals[i].code)] = times;
    }
    return {{"done", timesDone(board, row)}, {"refused", refused}};
}

Json halves(const bench::Holdings (&holdings)[2])
{
    Json all;
    for (std::size_t kind = 0; kind < holdings[0].size(); ++kind)
        all[bench::holdingNames[kind]] = {holdings[0][kind], holdings[1][kind]};
    return all;
}

Json findingsOn(const Board& board, const std::vector<std::string>& own)
{
    std::map<std::string, std::uint64_t> times;
    for (const auto& finding : own) ++times[finding];
    for (const ThreadBoard* thread : threadsOn(board))
        for (const Finding& finding : thread->findings)
            if (finding.times > 0) times[finding.text] += finding.times;
    Json findings = Json::array();
    for (const auto& [text, count] : times) findings.push_back({{"what", text}, {"times", count}});
    return findings;
}

} // namespace

Json summary(const Board& board, const Options& options, const Disturbances& disturbances,
             const std::vector<std::string>& findings)
{
    Json all{{"minutes", options.minutes}, {"seed", options.seed}};
    for (std::size_t row = 1; row < std::size(calls); ++row) all["calls"][std::string(calls[row].name)] = outcomesOf(board, row);
    all["signatures"] = sum(board, [](const auto& thread) { return thread.signatures; });
    all["decryptions"] = sum(board, [](const auto& thread) { return thread.decryptions; });
    all["windows"] = sum(board, [](const auto& thread) { return thread.dialogs; });
    all["unloadings"] = sum(board, [](const auto& thread) { return thread.unloadings; });
    all["log"] = {{"folder deleted", disturbances.deletions}, {"level changed", disturbances.levels}};
    for (std::size_t row = 1; row < allWeathers().size(); ++row)
        all["token"][allWeathers()[row].name] = disturbances.weathers[row];
    for (const auto& process : board.processes) {
        all["holdings"].push_back(halves(process.unloaded));
        all["with the module"].push_back(halves(process.loaded));
    }
    all["findings"] = findingsOn(board, findings);
    all["held"] = all["findings"].empty();
    return all;
}

std::string table(const Json& all)
{
    constexpr int nameWidth = 40, countWidth = 9;
    std::ostringstream text;
    for (const auto& [name, outcomes] : all["calls"].items()) {
        text << std::left << std::setw(nameWidth) << name << std::right << std::setw(countWidth) << outcomes["done"].dump();
        for (const auto& [code, times] : outcomes["refused"].items()) text << "  " << code << " " << times;
        text << "\n";
    }
    text << "\nsignatures " << all["signatures"] << ", each verified by bcrypt; decrypted " << all["decryptions"] << "; windows "
         << all["windows"] << "; module unloaded " << all["unloadings"] << " times\nthe token was";
    for (const auto& [name, times] : all["token"].items()) text << " " << name << " " << times << ";";
    for (const auto& [what, times] : all["log"].items()) text << " log " << what << " " << times << ";";
    text << "\neach process held after the first half and the second (TLS slots: those free, below zero), at last with the "
            "module:\n";
    for (const char* when : {"holdings", "with the module"}) {
        for (const auto& process : all[when]) {
            if (process["threads"][0] == 0) continue;
            for (const auto& [kind, halves] : process.items()) text << "  " << kind << " " << halves[0] << " " << halves[1];
            text << "\n";
        }
    }
    const std::string again = "./soak.sh " + all["minutes"].dump() + " --seed " + all["seed"].dump();
    for (const auto& finding : all["findings"])
        text << "WRONG, " << finding["times"] << " times: " << finding["what"].get<std::string>() << "; again: " << again << "\n";
    text << (all["held"] ? "everything held; the same again: " : "not everything held; again: ") << again << "\n";
    return text.str();
}

std::uint64_t timesDone(const Board& board, std::size_t call)
{
    return sum(board, [=](const auto& thread) { return thread.outcomes[call].done; });
}

unsigned long long callsOn(const Board& board)
{
    return sum(board, [](const auto& thread) { return thread.count.load(); });
}

} // namespace quelta::soak
