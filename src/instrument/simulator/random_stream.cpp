#include "instrument/simulator/random_stream.h"

#include <cmath>

#include "instrument/simulator/portable_math.h"

namespace korvane::simulation {

namespace {

std::uint64_t splitmix(std::uint64_t& state) {
    state += 0x9e3779b97f4a7c15u;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

}  // namespace

RandomStream::RandomStream(std::uint64_t seed, std::uint64_t stream_number) {
    std::uint64_t state = seed;
    state = splitmix(state) ^ (stream_number * 0xd1342543de82ef95u + 1);
    for (auto& word : state_) word = splitmix(state);
}

double RandomStream::zero_probability(double mean) {
    return portable_exp(-mean);
}

std::int64_t RandomStream::continue_small_poisson(double mean, double probability, double remaining) noexcept {
    std::int64_t count = 0;
    while (remaining >= probability && count < 200) {  // 200 is out of reach of a mean below 10
        remaining -= probability;
        ++count;
        probability *= mean / static_cast<double>(count);
    }
    return count;
}

// Transformed rejection with squeeze, algorithm PTRS of Hoermann, Insurance: Mathematics and Economics 12 (1993) 39.
std::int64_t RandomStream::large_poisson(double mean) {
    const double b = 0.931 + 2.53 * std::sqrt(mean);
    const double a = -0.059 + 0.02483 * b;
    const double squeeze = 0.9277 - 3.6224 / (b - 2.0);
    for (;;) {
        const double u = uniform() - 0.5;
        const double v = uniform();
        const double distance = 0.5 - std::abs(u);
        const double k = std::floor((2.0 * a / distance + b) * u + mean + 0.43);
        if (distance >= 0.07 && v <= squeeze) return static_cast<std::int64_t>(k);
        if (k < 0.0 || (distance < 0.013 && v > distance)) continue;
        const double inverse_alpha = 1.1239 + 1.1328 / (b - 3.4);
        const double left = portable_log(v * inverse_alpha / (a / (distance * distance) + b));
        if (left <= k * portable_log(mean) - mean - log_factorial(k)) return static_cast<std::int64_t>(k);
    }
}

}  // namespace korvane::simulation
