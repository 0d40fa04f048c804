#include "instrument/peakfinder/ion_statistics.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/peakfinder/tail_response.h"

namespace korvane {

namespace {

constexpr double core_sigmas = 2.5;
// A Gaussian describes the middle of a peak to this part of the model, and its sides less well.
constexpr double shape_error = 0.015;
// Weight of the expected counts per ion, as if that many strong samples had shown it.
constexpr double expectation_samples = 3;
constexpr double usual_tail = 0.04;
constexpr double usual_tail_spread = 0.04;
constexpr double largest_tail = 0.3;
constexpr double late_part = 0.055;  // of the area lies in the two stretches that the excess compares

}  // namespace

void IonStatistics::add_residuals(const FittedPeak& peak, double counts_per_ion, Line& line) const {
    const PeakShape& shape = peak.fit.shape;
    const BackgroundLevel level = background_.at(shape.centre);
    const double left = std::max(0.0, std::ceil(shape.centre - core_sigmas * shape.sigma));
    const double right =
        std::min(static_cast<double>(counts_.size()) - 1, std::floor(shape.centre + core_sigmas * shape.sigma));
    if (right - left < 4) return;  // with three parameters taken out nothing is left to judge
    const auto first = static_cast<std::size_t>(left);
    const auto size = static_cast<std::size_t>(right - left) + 1;
    std::vector<double> above(size);
    std::vector<double> model(size);
    background_.subtract(counts_, first, above);
    gaussian_samples(shape, static_cast<std::ptrdiff_t>(first), model);
    const double quiet = level.noise * level.noise;
    // The fit takes the variance of nearly three samples out of the residuals here.
    const double left_over = 1 - 2.4 / static_cast<double>(size);
    for (std::size_t i = 0; i < size; ++i) {
        if (counts_[first + i] >= traits_.saturation_counts) return;
        const double u = (static_cast<double>(first + i) - shape.centre) / shape.sigma;
        const double misfit = shape_error * (1 + u * u) * model[i];
        const double variance = quiet + counts_per_ion * model[i] + misfit * misfit;
        const double residual = above[i] - model[i];
        const double weight = 1 / (variance * variance);
        if (i + 1 < size) line.shared_variance += weight * model[i] * residual * (above[i + 1] - model[i + 1]);
        line.own_variance += weight * model[i] * (residual * residual - quiet);
        line.signal_square += weight * model[i] * model[i];
        line.signal_variance += weight * model[i] * (residual * residual / left_over - quiet);
    }
}

double IonStatistics::counts_per_ion() const {
    const double expected = traits_.counts_per_ion;
    double estimate = expected;
    for (int round = 0; round < 3; ++round) {
        Line line;
        for (const auto& peak : peaks_)
            if (peak.fit.valid && peak.alone) add_residuals(peak, estimate, line);
        const double pull = expectation_samples / (expected * expected);
        estimate = (line.signal_variance + pull * expected) / (line.signal_square + pull);
        estimate = std::clamp(estimate, 0.02 * expected, 50 * expected);
    }
    return estimate;
}

bool IonStatistics::neighbours_share_ions() const {
    // The fit leaves samples that count for themselves correlated by -0.4 to 0, samples under common pulses by 0.4 and
    // more.
    constexpr double limit = 0.25;
    Line line;
    for (const auto& peak : peaks_)
        if (peak.fit.valid && peak.alone) add_residuals(peak, traits_.counts_per_ion, line);
    return line.shared_variance > limit * line.own_variance && line.own_variance > 0;
}

double IonStatistics::tail_fraction() const {
    double tail = usual_tail;
    for (int round = 0; round < 4; ++round) {
        double weight_sum = 1 / (usual_tail_spread * usual_tail_spread);
        double sum = weight_sum * usual_tail;
        for (const auto& peak : peaks_) {
            if (!peak.fit.valid || !peak.alone || !(peak.area > 0)) continue;
            const double noise = background_.at(peak.fit.shape.centre).noise;
            const double arrival = traits_.arrival_part(peak.fit.shape.sigma * interval_ns_);
            const double sensitivity = excess_of_tail * peak.area * std::max(arrival, 0.1);
            const double variance = late_part * traits_.counts_per_ion * peak.area +
                                    8 * noise * noise * peak.fit.shape.sigma + 1e-5 * peak.area * peak.area;
            const double error = std::sqrt(variance) / sensitivity;
            const double own_tail = peak.late_excess / sensitivity;
            const double deviation = std::abs(own_tail - tail) / error;
            const double weight = std::min(1.0, 2.5 / std::max(deviation, 1e-9)) / (error * error);
            weight_sum += weight;
            sum += weight * own_tail;
        }
        tail = std::clamp(sum / weight_sum, 0.0, largest_tail);
    }
    return tail;
}

}  // namespace korvane
