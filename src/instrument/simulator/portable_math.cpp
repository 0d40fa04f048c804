#include "instrument/simulator/portable_math.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace korvane::simulation {

namespace {

constexpr double ln2_high = 0x1.62e42feep-1;  // few enough bits for k * ln2_high to be exact
constexpr double ln2_low = 0x1.a39ef35793c76p-33;
constexpr double log2_e = 1.4426950408889634;
constexpr double sqrt_half = 0.70710678118654752;

}  // namespace

double portable_exp(double x) {
    if (x < -700.0) return 0.0;
    if (x > 700.0) x = 700.0;
    const double k = std::floor(x * log2_e + 0.5);
    const double r = (x - k * ln2_high) - k * ln2_low;
    double sum = 1.0;
    for (int n = 14; n >= 1; --n) sum = 1.0 + r * sum / n;
    return std::ldexp(sum, static_cast<int>(k));
}

double portable_log(double x) {
    int exponent = 0;
    double mantissa = std::frexp(x, &exponent);
    if (mantissa < sqrt_half) {
        mantissa *= 2.0;
        --exponent;
    }
    const double s = (mantissa - 1.0) / (mantissa + 1.0);
    const double square = s * s;
    double sum = 0.0;
    for (int n = 23; n >= 1; n -= 2) sum = sum * square + 1.0 / n;
    return exponent * ln2_high + (2.0 * s * sum + exponent * ln2_low);
}

double portable_pow(double positive_base, double exponent) {
    return portable_exp(exponent * portable_log(positive_base));
}

double portable_sine_of_turns(double turns) {
    double reduced = turns - std::floor(turns + 0.5);  // -0.5 to 0.5
    if (reduced > 0.25) reduced = 0.5 - reduced;
    if (reduced < -0.25) reduced = -0.5 - reduced;
    const double x = 2.0 * pi * reduced;
    double sum = 1.0;
    for (int n = 20; n >= 2; n -= 2) sum = 1.0 - x * x * sum / (n * (n + 1));
    return x * sum;
}

double normal_density(double x) {
    return portable_exp(-0.5 * x * x) / std::sqrt(2.0 * pi);
}

double normal_distribution(double x) {
    double term = x;
    double sum = x;
    for (int n = 3; n < 400; n += 2) {
        term *= x * x / n;
        sum += term;
        if (std::abs(term) < 1e-18 * std::abs(sum)) break;
    }
    return 0.5 + normal_density(x) * sum;
}

double log_factorial(double n) {
    static const std::array<double, 32> small = [] {
        std::array<double, 32> table{};
        for (std::size_t i = 1; i < table.size(); ++i) table[i] = table[i - 1] + portable_log(static_cast<double>(i));
        return table;
    }();
    if (n < static_cast<double>(small.size())) return small[static_cast<std::size_t>(n)];
    const double inverse = 1.0 / n;  // Stirling's series
    const double correction = inverse * (1.0 / 12 - inverse * inverse * (1.0 / 360 - inverse * inverse / 1260));
    return (n + 0.5) * portable_log(n) - n + 0.5 * portable_log(2.0 * pi) + correction;
}

}  // namespace korvane::simulation
