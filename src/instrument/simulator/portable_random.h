// Functions and random draws that are the same on every machine: made of the basic operations and square roots only,
// which round alike everywhere, so that a seed gives the same spectra. Accurate to a few units in the last place.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

namespace korvane::simulation {

inline constexpr double pi = 3.14159265358979323846;

double portable_exp(double x);
/// Natural logarithm of a positive number.
double portable_log(double x);
double portable_pow(double positive_base, double exponent);
/// sin(2 pi turns).
double portable_sine_of_turns(double turns);
/// Density of the standard normal distribution.
double normal_density(double x);
/// Distribution function of the standard normal distribution, absolute error below 1e-15 for |x| < 6.
double normal_distribution(double x);
/// ln(n!), n >= 0.
double log_factorial(double n);

// Tables that turn 16 random bits into a variate: entry i holds the quantile at (i + 1/2) / 65536.
inline constexpr int quantile_count = 1 << 16;

/// Standard normal distribution, ascending, -4.33 to 4.33.
const std::vector<double>& normal_quantiles();
/// Exponential distribution of mean 1.
const std::vector<double>& exponential_quantiles();
/// Log-normal distribution of mean 1 and the given coefficient of variation.
std::vector<double> log_normal_quantiles(double coefficient_of_variation);

/// Draws by xoshiro256++ (Blackman and Vigna, 2019) seeded by splitmix64.
class RandomStream {
public:
    /// Streams of the same seed and different numbers are independent for all that matters here.
    RandomStream(std::uint64_t seed, std::uint64_t stream_number);

    std::uint64_t next_bits() noexcept {
        const std::uint64_t result = std::rotl(state_[0] + state_[3], 23) + state_[0];
        const std::uint64_t shifted = state_[1] << 17;
        state_[2] ^= state_[0];
        state_[3] ^= state_[1];
        state_[1] ^= state_[2];
        state_[0] ^= state_[3];
        state_[2] ^= shifted;
        state_[3] = std::rotl(state_[3], 45);
        return result;
    }

    /// Uniform, strictly between 0 and 1.
    double uniform() noexcept { return (static_cast<double>(next_bits() >> 12) + 0.5) * 0x1p-52; }

    /// Poisson variate of the given mean, exact for every mean from 0 on.
    std::int64_t poisson(double mean) {
        return mean < 10.0 ? small_poisson(mean, zero_probability(mean)) : large_poisson(mean);
    }
    /// The same for a mean whose exp(-mean) the caller has kept; only for means below 10.
    std::int64_t small_poisson(double mean, double probability_of_zero) noexcept {
        double remaining = uniform();
        if (remaining < probability_of_zero) return 0;
        return continue_small_poisson(mean, probability_of_zero, remaining);
    }
    static double zero_probability(double mean);

private:
    static std::int64_t continue_small_poisson(double mean, double probability, double remaining) noexcept;
    std::int64_t large_poisson(double mean);

    std::array<std::uint64_t, 4> state_{};
};

}  // namespace korvane::simulation
