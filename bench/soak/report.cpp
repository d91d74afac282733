#include "soak/soak.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <numeric>

namespace quelta::soak {

namespace {

void addWhatWasNeverDone(const Board& board, std::vector<std::string>& findings)
{
    const auto require = [&](bool happened, std::string_view what) {
        if (!happened) findings.push_back(std::string(what) + ": never in this run. Soak for longer, or look why");
    };
    for (std::size_t row = 0; row < std::size(calls); ++row)
        require(board.done[row] != 0 || calls[row].least == more, calls[row].name);
    for (std::size_t row = signedOn; row < std::size(states); ++row) require(board.changes[row] != 0, states[row].name);
    require(board.unloadings != 0, "The module unloaded");
}

void addWorkersFindings(const std::filesystem::path& folder, std::vector<std::string>& findings)
{
    constexpr std::string_view mark = "WRONG: ";
    for (std::size_t worker = 1; worker <= workers; ++worker) {
        std::ifstream output(folder / ("worker-" + std::to_string(worker) + ".txt"));
        for (std::string line; std::getline(output, line);)
            if (line.starts_with(mark)) findings.push_back(line.substr(mark.size()));
    }
}

} // namespace

int report(const Board& board, const std::filesystem::path& folder, std::vector<std::string> findings)
{
    // A shorter run may miss a call or a state by chance.
    if (board.minutes >= 1 && findings.empty()) addWhatWasNeverDone(board, findings);
    addWorkersFindings(folder, findings);
    const auto sum = [](const auto& counts) { return std::accumulate(std::begin(counts), std::end(counts), 0ULL); };
    std::printf("%llu calls done, %llu refused; %llu signatures verified, %llu texts compared, %llu windows worked, the module "
                "unloaded %llu times\nThe token was",
                sum(board.done), sum(board.refused), board.signatures.load(), board.decryptions.load(), board.windows.load(),
                board.unloadings.load());
    for (std::size_t row = signedOn; row < std::size(states); ++row)
        std::printf(" %s %u times%s", states[row].name, board.changes[row].load(), row + 1 < std::size(states) ? "," : "\n");
    std::map<std::string, unsigned> times;
    for (const auto& finding : findings) ++times[finding];
    for (const auto& [finding, count] : times) std::printf("WRONG, %u times: %s\n", count, finding.c_str());
    std::printf("%s; again: ./soak.sh %g --seed %lu\n", times.empty() ? "Everything held" : "Not everything held", board.minutes,
                static_cast<unsigned long>(board.seed));
    std::fflush(stdout);
    return times.empty() ? 0 : 1;
}

} // namespace quelta::soak
