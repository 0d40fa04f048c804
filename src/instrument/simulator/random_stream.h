// Random draws of the simulation: the same seed gives the same ones.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

namespace korvane::simulation {

/// Density of the standard normal distribution.
double normal_density(double x);

// Tables that turn 16 random bits into a variate: entry i holds the quantile at (i + 1/2) / 65536.

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
    std::int64_t poisson(double mean);

private:
    std::int64_t large_poisson(double mean);

    std::array<std::uint64_t, 4> state_{};
};

}  // namespace korvane::simulation
