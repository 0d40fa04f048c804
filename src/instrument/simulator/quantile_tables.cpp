#include "instrument/simulator/quantile_tables.h"

#include <cmath>
#include <cstddef>

#include "instrument/simulator/portable_math.h"

namespace korvane::simulation {

namespace {

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

}  // namespace

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

}  // namespace korvane::simulation
