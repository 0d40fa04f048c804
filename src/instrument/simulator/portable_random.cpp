#include "instrument/simulator/portable_random.h"

#include <cmath>
#include <cstddef>

namespace korvane::simulation {

namespace {

constexpr double ln2_high = 0x1.62e42feep-1;  // few enough bits for k * ln2_high to be exact
constexpr double ln2_low = 0x1.a39ef35793c76p-33;
constexpr double log2_e = 1.4426950408889634;
constexpr double sqrt_half = 0.70710678118654752;

struct Node {
    double x, probability, slope;  // slope dx / dprobability
};

Node normal_node(double x) {
    return {x, normal_distribution(x), 1.0 / normal_density(x)};
}

// Cubic Hermite interpolation of x over the probability.
double interpolate(const Node& left, const Node& right, double probability) {
    const double width = right.probability - left.probability;
    const double u = (probability - left.probability) / width;
    const double v = 1.0 - u;
    return v * v * (1.0 + 2.0 * u) * left.x + u * u * (1.0 + 2.0 * v) * right.x +
           u * v * width * (v * left.slope - u * right.slope);
}

std::vector<double> build_normal_quantiles() {
    constexpr std::size_t half = quantile_count / 2;
    constexpr double step = 1.0 / 512.0;
    std::vector<double> table(quantile_count);
    Node left = normal_node(0.0);
    Node right = normal_node(step);
    for (std::size_t i = 0; i < half; ++i) {
        const double probability = 0.5 + (static_cast<double>(i) + 0.5) / quantile_count;
        while (right.probability < probability) {
            left = right;
            right = normal_node(left.x + step);
        }
        const double x = interpolate(left, right, probability);
        table[half + i] = x;
        table[half - 1 - i] = -x;
    }
    return table;
}

std::uint64_t splitmix(std::uint64_t& state) {
    state += 0x9e3779b97f4a7c15u;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

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
    if (n < 32) {
        double sum = 0;
        for (double i = 1; i <= n; ++i) sum += portable_log(i);
        return sum;
    }
    const double inverse = 1.0 / n;  // Stirling's series
    const double correction = inverse * (1.0 / 12 - inverse * inverse * (1.0 / 360 - inverse * inverse / 1260));
    return (n + 0.5) * portable_log(n) - n + 0.5 * portable_log(2.0 * pi) + correction;
}

const std::vector<double>& normal_quantiles() {
    static const std::vector<double> table = build_normal_quantiles();
    return table;
}

const std::vector<double>& exponential_quantiles() {
    static const std::vector<double> table = [] {
        std::vector<double> values(quantile_count);
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = -portable_log(1.0 - (static_cast<double>(i) + 0.5) / quantile_count);
        return values;
    }();
    return table;
}

std::vector<double> log_normal_quantiles(double coefficient_of_variation) {
    const double variance = portable_log(1.0 + coefficient_of_variation * coefficient_of_variation);
    const double spread = std::sqrt(variance);
    std::vector<double> values = normal_quantiles();
    for (double& value : values) value = portable_exp(spread * value - 0.5 * variance);
    return values;
}

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
