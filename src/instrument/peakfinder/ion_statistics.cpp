#include "instrument/peakfinder/ion_statistics.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/peakfinder/tail_response.h"

namespace korvane {

namespace {

constexpr double core_sigmas = 2.5;
// The model describes the middle of a peak to this part, and its sides less well.
constexpr double shape_error = 0.005;
// Weight of the expected counts per ion, as if that many strong samples had shown it.
constexpr double expectation_samples = 3;
// Of the expected counts per ion that an estimate goes down to.
constexpr double least_part = 0.08;
constexpr double usual_tail = 0.04;
constexpr double usual_tail_spread = 0.04;
constexpr double largest_tail = 0.3;
constexpr double late_part = 0.055;  // of the area lies in the two stretches that the excess compares

}  // namespace

IonStatistics::IonStatistics(std::span<const std::int32_t> counts, const Background& background,
                             std::span<const FittedPeak> peaks, const PeakTraits& traits, double interval_ns)
    : counts_(counts),
      background_(background),
      peaks_(peaks),
      traits_(traits),
      interval_ns_(interval_ns),
      whole_tail_(tail_fraction()) {
    for (const auto& peak : peaks)
        if (peak.fit.valid && peak.alone) collect(peak);
}

void IonStatistics::collect(const FittedPeak& peak) {
    const PeakShape& shape = peak.fit.shape;
    const double left = std::max(0.0, std::ceil(shape.centre - core_sigmas * shape.sigma));
    const double right =
        std::min(static_cast<double>(counts_.size()) - 1, std::floor(shape.centre + core_sigmas * shape.sigma));
    if (right - left < 4) return;  // with three parameters taken out nothing is left to judge
    const auto first = static_cast<std::size_t>(left);
    const auto size = static_cast<std::size_t>(right - left) + 1;
    for (std::size_t i = 0; i < size; ++i)
        if (counts_[first + i] >= traits_.saturation_counts) return;
    std::vector<double> above(size);
    std::vector<double> model(size, 0.0);
    background_.subtract(counts_, first, above);
    add_late_peak_samples(shape, whole_tail_, static_cast<std::ptrdiff_t>(first), model);
    Core& core = cores_.emplace_back();
    const double noise = background_.at(shape.centre).noise;
    core.quiet = noise * noise;
    for (std::size_t i = 0; i < size; ++i) {
        const double u = (static_cast<double>(first + i) - shape.centre) / shape.sigma;
        const double misfit = shape_error * (1 + u * u) * model[i];
        core.samples.push_back({model[i], above[i] - model[i], misfit * misfit});
    }
}

IonStatistics::Line IonStatistics::line(double counts_per_ion) const {
    Line line;
    for (const auto& core : cores_) {
        const std::size_t size = core.samples.size();
        line.freedom += static_cast<double>(size) - 3;
        // The fit takes the variance of nearly three samples out of the residuals here.
        const double left_over = 1 - 2.4 / static_cast<double>(size);
        for (std::size_t i = 0; i < size; ++i) {
            const auto& [model, residual, misfit_square] = core.samples[i];
            const double variance = core.quiet + counts_per_ion * model + misfit_square;
            const double weight = model / (variance * variance);
            if (i + 1 < size) line.shared_variance += weight * residual * core.samples[i + 1].residual;
            line.own_variance += weight * (residual * residual - core.quiet);
            line.signal_square += weight * model;
            line.signal_variance += weight * (residual * residual / left_over - core.quiet);
        }
    }
    return line;
}

double IonStatistics::counts_per_ion() const {
    const double expected = traits_.counts_per_ion;
    const double pull = expectation_samples / (expected * expected);
    double estimate = expected;
    for (int round = 0; round < 3; ++round) {
        const Line sums = line(estimate);
        estimate = (sums.signal_variance + pull * expected) / (sums.signal_square + pull);
        estimate = std::clamp(estimate, least_part * expected, 50 * expected);
    }
    return estimate;
}

bool IonStatistics::ions_are_pulses(double counted_per_ion) const {
    // From a few samples too small a rest is chance.
    constexpr double least_freedom = 5;
    const Line sums = line(traits_.counts_per_ion);
    if (sums.freedom < least_freedom) return false;
    // Where a peak is hardly wider than a pulse the fit leaves nothing over.
    if (counted_per_ion <= least_part * traits_.counts_per_ion) return true;
    // The fit leaves samples that count for themselves correlated by -0.4 to 0, samples under common pulses by 0.4 and
    // more.
    constexpr double limit = 0.35;
    return sums.shared_variance > limit * sums.own_variance && sums.own_variance > 0;
}

double IonStatistics::tail_fraction() const {
    double tail = usual_tail;
    for (int round = 0; round < 4; ++round) {
        double weight_sum = 1 / (usual_tail_spread * usual_tail_spread);
        double sum = weight_sum * usual_tail;
        for (const auto& peak : peaks_) {
            if (!peak.fit.valid || !peak.alone || !(peak.area > 0)) continue;
            const double noise = background_.at(peak.fit.shape.centre).noise;
            const double effect = traits_.tail_effect(peak.fit.shape.sigma * interval_ns_);
            const double sensitivity = excess_of_tail * peak.area * std::max(effect, 0.1);
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
