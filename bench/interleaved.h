// Two things measured in turns: for ratios near 1, where whole repetitions lie too far apart in time.
#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "bench/ratio.h"

namespace korvane::bench {

/// Medians of the time of a batch of `calls` calls each; the two take turns, and go first by turns, for about a second.
template <class First, class Second>
std::vector<std::pair<std::string, double>> interleaved(const std::string& first_name, First&& first,
                                                        const std::string& second_name, Second&& second, int calls) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> first_times, second_times;
    const auto batch = [calls](auto& run, std::vector<double>& times) {
        const auto begin = Clock::now();
        for (int call = 0; call < calls; ++call) run();
        times.push_back(std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / calls);
    };
    const auto median = [](std::vector<double>& times) {
        std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
        return times[times.size() / 2];
    };
    constexpr std::size_t fewest_rounds = 51;
    const auto end = Clock::now() + std::chrono::seconds(1);
    while (first_times.size() < fewest_rounds || Clock::now() < end) {
        batch(first, first_times);
        batch(second, second_times);
        batch(second, second_times);
        batch(first, first_times);
    }
    return {{first_name, median(first_times)}, {second_name, median(second_times)}};
}

}  // namespace korvane::bench
