// Tables that turn 16 random bits into a variate: entry i holds the quantile at (i + 1/2) / 65536.
#pragma once

#include <vector>

namespace korvane::simulation {

inline constexpr int quantile_bits = 16;
inline constexpr int quantile_count = 1 << quantile_bits;

/// Standard normal distribution, ascending, -4.33 to 4.33.
const std::vector<double>& normal_quantiles();
/// Exponential distribution of mean 1.
const std::vector<double>& exponential_quantiles();
/// Log-normal distribution of mean 1 and the given coefficient of variation.
std::vector<double> log_normal_quantiles(double coefficient_of_variation);

}  // namespace korvane::simulation
