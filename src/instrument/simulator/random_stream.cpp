#include "instrument/simulator/random_stream.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace korvane::simulation {

namespace {

constexpr std::size_t quantile_count = std::size_t{1} << 16;

std::uint64_t splitmix(std::uint64_t& state) {
    state += 0x9e3779b97f4a7c15u;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

/// ln(n!); the one of the C library keeps a sign in a variable of the process.
double log_factorial(double n) {
    if (n < 32) {
        double sum = 0;
        for (double i = 1; i <= n; ++i) sum += std::log(i);
        return sum;
    }
    const double inverse = 1.0 / n;  // Stirling's series
    const double correction = inverse * (1.0 / 12 - inverse * inverse * (1.0 / 360 - inverse * inverse / 1260));
    return (n + 0.5) * std::log(n) - n + 0.5 * std::log(2.0 * std::numbers::pi) + correction;
}

}  // namespace

double normal_density(double x) {
    return std::exp(-0.5 * x * x) / std::sqrt(2.0 * std::numbers::pi);
}

const std::vector<double>& normal_quantiles() {
    static const std::vector<double> table = [] {
        std::vector<double> values(quantile_count);
        constexpr std::size_t half = quantile_count / 2;
        double x = 0;
        for (std::size_t i = 0; i < half; ++i) {
            const double above_median = (static_cast<double>(i) + 0.5) / quantile_count;
            double change;
            do {  // Newton from below, where the distribution function only gets flatter
                change = (above_median - 0.5 * std::erf(x / std::numbers::sqrt2)) / normal_density(x);
                x += change;
            } while (change > 1e-8);
            values[half + i] = x;
            values[half - 1 - i] = -x;
        }
        return values;
    }();
    return table;
}

const std::vector<double>& exponential_quantiles() {
    static const std::vector<double> table = [] {
        std::vector<double> values(quantile_count);
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = -std::log(1.0 - (static_cast<double>(i) + 0.5) / quantile_count);
        return values;
    }();
    return table;
}

std::vector<double> log_normal_quantiles(double coefficient_of_variation) {
    const double variance = std::log(1.0 + coefficient_of_variation * coefficient_of_variation);
    const double spread = std::sqrt(variance);
    std::vector<double> values = normal_quantiles();
    for (double& value : values) value = std::exp(spread * value - 0.5 * variance);
    return values;
}

RandomStream::RandomStream(std::uint64_t seed, std::uint64_t stream_number) {
    std::uint64_t state = seed;
    state = splitmix(state) ^ (stream_number * 0xd1342543de82ef95u + 1);
    for (auto& word : state_) word = splitmix(state);
}

std::int64_t RandomStream::poisson(double mean) {
    if (mean >= 10.0) return large_poisson(mean);
    double remaining = uniform(), probability = std::exp(-mean);
    std::int64_t count = 0;
    while (remaining >= probability && count < 200) {  // 200 is out of reach
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
        const double left = std::log(v * inverse_alpha / (a / (distance * distance) + b));
        if (left <= k * std::log(mean) - mean - log_factorial(k)) return static_cast<std::int64_t>(k);
    }
}

}  // namespace korvane::simulation
