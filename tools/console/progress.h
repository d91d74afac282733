// Tells how far a long run has come, on a console only and only once it has taken a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quelta::tools {

class Progress {
public:
    // Of what has no known size only what is done is told.
    Progress(std::string verb, std::optional<std::uint64_t> total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::uint64_t bytes);

private:
    using Clock = std::chrono::steady_clock;

    std::string verb_;
    std::optional<std::uint64_t> total_;
    std::uint64_t done_ = 0;
    Clock::time_point next_;
    bool console_;
    std::size_t shown_ = 0;
};

} // namespace quelta::tools
