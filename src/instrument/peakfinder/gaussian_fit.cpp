#include "instrument/peakfinder/gaussian_fit.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "instrument/peakfinder/ion_pulse.h"

namespace korvane {

namespace {

// Part of the height that is added to every sample's variance, in counts squared per count per ion.
constexpr double end_softening = 0.01;
constexpr int most_steps = 12;
// No peak's width is trusted to lie further from the expected one; keeps peaks of a few ions in bounds.
constexpr double widest_spread = 0.3;
constexpr double largest_widening = 4;
// A pulse much shorter than the sampling interval lies in one sample.
constexpr double shortest_pulse = 0.5;

/// Steps after which one more brings the shape well within its standard errors.
bool nearly_settled(const Vector3& step, const Matrix3& inverse) {
    for (std::size_t i = 0; i < 3; ++i)
        if (std::abs(step[i]) > std::min(0.1, 0.5 * std::sqrt(inverse[i][i]))) return false;
    return true;
}

void take_step(const Vector3& step, PeakShape& shape) {
    shape.height *= std::exp(std::clamp(step[0], -0.7, 0.7));
    shape.centre += std::clamp(step[1], -1.0, 1.0) * shape.sigma;
    shape.sigma *= std::exp(std::clamp(step[2], -0.3, 0.3));
}

/// Variance of one sample, per count, that the ions make.
double sample_ion_variance(const FitConditions& conditions) {
    if (conditions.pulse_sigma < shortest_pulse) return conditions.ion_variance;
    return conditions.ion_variance / (2 * std::sqrt(std::numbers::pi) * conditions.pulse_sigma);
}

/// Weight of a sample by its model; the same for a sample that holds a neighbour's ions as well.
struct Weighting {
    Weighting(const PeakShape& shape, const FitConditions& conditions)
        : gain(sample_ion_variance(conditions)),
          floor_variance(conditions.noise * conditions.noise + end_softening * gain * shape.height) {}
    double operator()(double model) const { return 1 / (floor_variance + gain * model); }

    double gain;
    double floor_variance;
};

void add_residual(double term, double u, double square, Vector3& sums) {
    sums[0] += term;
    sums[1] += term * u;
    sums[2] += term * square;
}

void add_moments(double term, double u, double square, std::array<double, 5>& sums) {
    sums[0] += term;
    sums[1] += term * u;
    sums[2] += term * square;
    sums[3] += term * square * u;
    sums[4] += term * square * square;
}

}  // namespace

GaussianFitter::Reach GaussianFitter::model_peak(const PeakSamples& samples, const PeakShape& shape) {
    const auto last = samples.first + static_cast<std::ptrdiff_t>(samples.above.size()) - 1;
    const double reach = fit_reach * shape.sigma;
    const auto from = std::max(samples.first, static_cast<std::ptrdiff_t>(std::ceil(shape.centre - reach)));
    const auto to = std::min(last, static_cast<std::ptrdiff_t>(std::floor(shape.centre + reach)));
    if (to < from) return {};
    const auto count = static_cast<std::size_t>(to - from + 1);
    if (model_.size() < count) model_.resize(count);
    gaussian_samples(shape, from, std::span(model_.data(), count));
    return {static_cast<std::size_t>(from - samples.first), count,
            (static_cast<double>(from) - shape.centre) / shape.sigma};
}

template <bool with_scatter>
GaussianFitter::Sums GaussianFitter::accumulate(const PeakSamples& samples, const PeakShape& shape,
                                                const FitConditions& conditions) {
    const Reach reach = model_peak(samples, shape);
    const Weighting weighting(shape, conditions);
    const bool pulses = conditions.pulse_sigma >= shortest_pulse;
    const double quiet = conditions.noise * conditions.noise;
    const double ion_variance = pulses ? 0 : conditions.ion_variance;
    const double step = 1 / shape.sigma;
    if (with_scatter && pulses) influence_.assign(reach.count, 0.0);
    Sums sums;
    double u = reach.first_distance;
    for (std::size_t i = 0; i < reach.count; ++i, u += step) {
        const double above = samples.above[reach.offset + i];
        if (above == saturated) continue;
        const double others = samples.others.empty() ? 0 : samples.others[reach.offset + i];
        const double model = model_[i];
        const double slope = weighting(model + others) * model;
        const double square = u * u;
        add_residual(slope * (above - others - model), u, square, sums.residual);
        add_moments(slope * model, u, square, sums.information);
        if constexpr (with_scatter) {
            // The sample itself tells its variance better than the model, which knows nothing of late ions.
            const double variance = quiet + ion_variance * std::max(above, 0.0);
            add_moments(slope * slope * variance, u, square, sums.variance);
            if (pulses) influence_[i] = slope;
        }
    }
    return sums;
}

Matrix3 GaussianFitter::scatter(const PeakSamples& samples, const PeakShape& shape, const FitConditions& conditions,
                                const Sums& sums) const {
    Matrix3 total = moment_matrix(sums.variance);
    if (conditions.pulse_sigma < shortest_pulse) return total;
    const IonPulses ions{conditions.ion_variance, conditions.pulse_sigma, conditions.tail_fraction,
                         conditions.tail_pulse_part};
    const auto lowest = static_cast<std::ptrdiff_t>(std::ceil(shape.centre - fit_reach * shape.sigma));
    const Matrix3 shared = pulse_scatter(shape, ions, std::max(samples.first, lowest), influence_);
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column) total[row][column] += shared[row][column];
    return total;
}

bool GaussianFitter::approach(const PeakSamples& samples, const FitConditions& conditions, double spread,
                              PeakShape& shape) {
    const double pull = 1 / (spread * spread);
    for (int steps = 0; steps < most_steps; ++steps) {
        const Sums sums = accumulate<false>(samples, shape, conditions);
        Matrix3 matrix = moment_matrix(sums.information);
        Vector3 right = sums.residual;
        matrix[2][2] += pull;
        right[2] -= pull * std::log(shape.sigma / conditions.expected_sigma);
        Matrix3 inverse;
        if (!invert(matrix, inverse)) return false;
        const Vector3 step = product(inverse, right);
        take_step(step, shape);
        const double widening = shape.sigma / conditions.expected_sigma;
        if (widening > largest_widening || widening * largest_widening < 1) return false;
        if (nearly_settled(step, inverse)) return true;
    }
    return false;
}

bool GaussianFitter::conclude(const PeakSamples& samples, const FitConditions& conditions, double spread,
                              PeakFit& fit) {
    const Sums sums = accumulate<true>(samples, fit.shape, conditions);
    const Matrix3 variances = scatter(samples, fit.shape, conditions, sums);
    auto error = [&](const Vector3& row) {
        return std::sqrt(std::max(0.0, inner_product(row, product(variances, row))));
    };
    const Matrix3 information = moment_matrix(sums.information);
    const double deviation = std::log(fit.shape.sigma / conditions.expected_sigma);
    auto solve = [&](double pull, Matrix3& inverse, Vector3& step) {
        Matrix3 matrix = information;
        matrix[2][2] += pull;
        Vector3 right = sums.residual;
        right[2] -= pull * deviation;
        const bool solved = invert(matrix, inverse);
        if (solved) step = product(inverse, right);
        return solved;
    };
    Matrix3 inverse;
    Vector3 step;
    // First the width that the peak would have nearly without the expectation, then the last step with it.
    if (!solve(1 / (widest_spread * widest_spread), inverse, step)) return false;
    fit.own_sigma = fit.shape.sigma * std::exp(std::clamp(step[2], -1.0, 1.0));
    fit.sigma_error = error(inverse[2]);
    if (!solve(1 / (spread * spread), inverse, step)) return false;
    fit.height_error = error(inverse[0]);
    fit.centre_error = error(inverse[1]) * fit.shape.sigma;
    take_step(step, fit.shape);
    return true;
}

PeakFit GaussianFitter::fit(const PeakSamples& samples, const PeakShape& start, const FitConditions& conditions) {
    PeakFit fit;
    fit.shape = start;
    for (double spread = conditions.expected_spread;; spread = widest_spread) {
        if (!approach(samples, conditions, spread, fit.shape)) return fit;
        if (!conclude(samples, conditions, spread, fit)) return fit;
        const double deviation = std::abs(std::log(fit.own_sigma / conditions.expected_sigma));
        const bool at_odds = deviation > 4 * std::hypot(fit.sigma_error, spread);
        if (!at_odds || spread >= widest_spread) break;
    }
    fit.valid = true;
    return fit;
}

}  // namespace korvane
