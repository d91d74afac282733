#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace quelta::bench {

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr Microseconds batchTime{20'000};
constexpr int batches = 11;

Microseconds timeOf(const std::function<void()>& call, long count)
{
    const auto begin = Clock::now();
    for (long i = 0; i < count; ++i) call();
    return Clock::now() - begin;
}

long callsInBatch(const std::function<void()>& call)
{
    long count = 1;
    for (Microseconds taken = timeOf(call, 1); taken < batchTime; taken = timeOf(call, count)) {
        const double wanted = static_cast<double>(count) * (batchTime / std::max(taken, Microseconds(1)));
        count = std::clamp(static_cast<long>(wanted) + 1, count + 1, count * 20);
    }
    return count;
}

} // namespace

std::vector<double> sideBySide(const std::vector<std::function<void()>>& calls)
{
    std::vector<long> counts(calls.size());
    std::ranges::transform(calls, counts.begin(), callsInBatch);
    std::vector<std::vector<double>> times(calls.size());
    for (int batch = 0; batch < batches; ++batch)
        for (std::size_t i = 0; i < calls.size(); ++i)
            times[i].push_back(timeOf(calls[i], counts[i]).count() / static_cast<double>(counts[i]));
    std::vector<double> medians;
    for (auto& of : times) {
        std::ranges::nth_element(of, of.begin() + batches / 2);
        medians.push_back(of[batches / 2]);
    }
    return medians;
}

double fittedExponent(const std::vector<double>& sizes, const std::vector<double>& values)
{
    const auto mean = [&](auto of) {
        double sum = 0;
        for (std::size_t i = 0; i < sizes.size(); ++i) sum += of(std::log(sizes[i]), std::log(values[i]));
        return sum / static_cast<double>(sizes.size());
    };
    const double x = mean([](double size, double) { return size; });
    const double y = mean([](double, double value) { return value; });
    return mean([=](double size, double value) { return (size - x) * (value - y); }) /
           mean([=](double size, double) { return (size - x) * (size - x); });
}

} // namespace quelta::bench
