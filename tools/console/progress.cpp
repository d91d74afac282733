#include "tools/console/progress.h"

#include "tools/console/console.h"

#include <algorithm>

namespace quelta::tools {

using namespace std::chrono_literals;

Progress::Progress(std::string verb, std::optional<std::uint64_t> total)
    : verb_(std::move(verb)), total_(total), next_(Clock::now() + 1s), console_(errorsGoToConsole())
{}

Progress::~Progress()
{
    if (shown_) writeToErrors('\r' + std::string(shown_, ' ') + '\r');
}

void Progress::advance(std::uint64_t bytes)
{
    done_ += bytes;
    const auto now = Clock::now();
    if (!console_ || now < next_) return;
    next_ = now + 200ms;

    constexpr std::uint64_t megabyte = 1024 * 1024;
    std::string line = verb_ + ' ' + std::to_string(done_ / megabyte) + " MB";
    if (total_) {
        const std::uint64_t percent = std::min<std::uint64_t>(100, done_ / megabyte * 100 / (*total_ / megabyte + 1));
        line += " of " + std::to_string(*total_ / megabyte) + " (" + std::to_string(percent) + " %)";
    }
    writeToErrors('\r' + line);
    shown_ = std::max(shown_, line.size());
}

} // namespace quelta::tools
