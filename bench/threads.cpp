#include "calls.h"
#include "measure.h"
#include "sections.h"

#include <deque>

namespace quelta::bench {

namespace {

double rateOf(std::deque<OpenModule>& modules, unsigned threads, const std::string& interface, const std::string& name, bool bare)
{
    return callsPerSecond(threads, [&](unsigned thread) {
        for (Operation& operation : modules[thread].operations())
            if (operation.interface == interface && operation.name == name) return bare ? operation.bare : operation.call;
        return std::function<void()>();
    });
}

} // namespace

Figures measureThreads(const std::string& pin)
{
    constexpr const char* measured[][2] = {
        {"CryptoAPI", "hash and sign"}, {"CryptoAPI", "hash, 64 KiB"}, {"key storage", "sign"}, {"key storage", "verify"}};
    const LogLevel set(2);
    Figures figures{"So many callers at once above the software token, calls a second, at level 2",
                    {{"interface", "interface"},
                     {"call", "call"},
                     {"threads", "threads"},
                     {"module", "through the module"},
                     {"bare", "of the library alone"},
                     {"ratio", "ratio", 2}}};
    std::deque<OpenModule> modules;
    for (const unsigned threads : {1U, 2U, 4U, 8U, 16U}) {
        while (modules.size() < threads) modules.emplace_back(pin);
        for (const auto& [interface, name] : measured) {
            const double bare = rateOf(modules, threads, interface, name, true);
            const double module = rateOf(modules, threads, interface, name, false);
            figures.rows.push_back({{"interface", interface},
                                    {"call", name},
                                    {"threads", threads},
                                    {"module", std::round(module)},
                                    {"bare", std::round(bare)},
                                    {"ratio", bare / module}});
        }
    }
    return figures;
}

} // namespace quelta::bench
