#include "instrument/peakfinder/ion_statistics.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <array>

namespace korvane {

using namespace method;

namespace {

/// The samples in the middle of a peak.
struct Core {
    struct Sample {
        double model, residual, misfit_square, u;
        double left_over;  ///< part of its variance that the fit leaves in the residual
    };
    std::vector<Sample> samples;
    double noise_variance;
};

/// By the leverage of every sample on the height, the place and the width that the fit has taken from them (diagonal of
/// the hat matrix: Hoaglin and Welsch, The American Statistician 32 (1978) 17).
void set_left_over(Core& core, const PeakModel& model) {
    Eigen::Matrix3d information = Eigen::Matrix3d::Zero();
    information(2, 2) = 1 / (model.width_spread * model.width_spread);
    const auto slopes = [](const Core::Sample& sample) {
        return Eigen::Vector3d(sample.model * Eigen::Vector3d(1, sample.u, sample.u * sample.u));
    };
    const auto weight = [&](const Core::Sample& sample) {
        return 1 / (core.noise_variance + model.counts_per_ion * sample.model);
    };
    for (const auto& sample : core.samples) information += weight(sample) * slopes(sample) * slopes(sample).transpose();
    const Eigen::Matrix3d scatter = information.inverse();
    for (auto& sample : core.samples)
        sample.left_over = std::clamp(1 - weight(sample) * slopes(sample).dot(scatter * slopes(sample)), 0.0, 1.0);
}

std::vector<Core> cores_of(const SearchContext& context, std::span<const FittedPeak> peaks, double tail_fraction) {
    std::vector<Core> cores;
    for (std::size_t place = 0; place < peaks.size(); ++place) {
        const PeakFit& fit = peaks[place].fit;
        // Among neighbours a misfit may be one more peak; alone it may be that ions are fewer than expected.
        if (!fit.valid || (!peaks[place].alone && fit.misfit > 1)) continue;
        const PeakShape& shape = fit.shape;
        const double reach = std::max(core_sigmas * shape.sigma, least_core_reach_samples);
        const auto range = context.samples_between(shape.centre - reach, shape.centre + reach);
        bool unusable = range.size() < least_core_samples;
        for (Index i = range.first; i < range.end; ++i) unusable = unusable || context.is_saturated(i);
        if (unusable) continue;
        const auto above = context.above(range);
        std::vector<double> model(range.size(), 0.0);
        for (const int direction : {-1, 1})
            for (Index i = place + (direction > 0 ? 0 : -1); i >= 0 && i < std::ssize(peaks); i += direction) {
                if (std::abs(peaks[i].fit.shape.centre - shape.centre) > model_neighbour_sigmas * shape.sigma) break;
                add_late_peak_samples(peaks[i].fit.shape, tail_fraction, range.first, model);
            }
        Core& core = cores.emplace_back();
        core.noise_variance = context.noise_variance(shape.centre);
        for (Index i = 0; i < range.size(); ++i) {
            const double u = (static_cast<double>(range.first + i) - shape.centre) / shape.sigma;
            const double misfit = core_shape_error * (1 + u * u) * model[i];
            core.samples.push_back({model[i], above[i] - model[i], misfit * misfit, u, 1});
        }
        set_left_over(core, context.model);
    }
    return cores;
}

struct CoreSums {
    double signal_square = 0;
    double signal_variance = 0;
    double own_variance = 0;
    double shared_variance = 0;  // with the next sample
    double freedom = 0;          // samples more than parameters of the fits
};

CoreSums sums_over(const std::vector<Core>& cores, double counts_per_ion) {
    CoreSums sums;
    for (const auto& [samples, noise_variance] : cores) {
        sums.freedom += static_cast<double>(samples.size()) - fitted_parameters;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const auto& [model, residual, misfit_square, u, left_over] = samples[i];
            const double variance = noise_variance + counts_per_ion * model + misfit_square;
            const double weight = model / (variance * variance);
            if (i + 1 < samples.size()) sums.shared_variance += weight * residual * samples[i + 1].residual;
            sums.own_variance += weight * (residual * residual - noise_variance);
            sums.signal_square += weight * left_over * model;
            sums.signal_variance += weight * (residual * residual - left_over * noise_variance);
        }
    }
    return sums;
}

/// What all peaks miss or have too much at the same distance from their centres is their shape, not chance.
void remove_common_misfit(std::vector<Core>& cores, double counts_per_ion) {
    if (cores.size() < least_shaped_cores) return;
    struct Part {
        double signal = 0, square = 0;
    };
    std::array<Part, shape_parts> parts{};
    const auto part_of = [&](double u) -> Part& {
        const double place = (u / core_sigmas + 1) / 2 * static_cast<double>(shape_parts);
        return parts[std::min(shape_parts - 1, static_cast<std::size_t>(std::max(0.0, place)))];
    };
    for (const auto& [samples, noise_variance] : cores)
        for (const auto& [model, residual, misfit_square, u, left_over] : samples) {
            const double weight = model / (noise_variance + counts_per_ion * model);
            part_of(u).signal += weight * residual;
            part_of(u).square += weight * model;
        }
    for (auto& core : cores)
        for (auto& sample : core.samples) {
            const auto [signal, square] = part_of(sample.u);
            if (std::abs(signal) > shape_errors * std::sqrt(square)) sample.residual -= signal / square * sample.model;
        }
}

}  // namespace

double estimated_tail_fraction(const SearchContext& context, std::span<const FittedPeak> peaks) {
    const PeakModel& model = context.model;
    double tail = usual_tail;
    for (int round = 0; round < tail_rounds; ++round) {
        double weight_sum = 1 / (usual_tail_spread * usual_tail_spread);
        double sum = weight_sum * usual_tail;
        for (const auto& peak : peaks) {
            if (!peak.fit.valid || !peak.alone || !(peak.area > 0)) continue;
            const PeakShape& shape = peak.fit.shape;
            const double effect = model.tail_effect(shape.sigma * context.axis.interval_ns);
            const double sensitivity = excess_of_tail * peak.area * std::max(effect, least_tail_effect);
            const double variance = sides_part * model.counts_per_ion * peak.area +
                                    sides_sigmas * context.noise_variance(shape.centre) * shape.sigma +
                                    sides_variance * peak.area * peak.area;
            const double error = std::sqrt(variance) / sensitivity;
            const double own_tail = peak.late_excess / sensitivity;
            const double deviation = std::max(std::abs(own_tail - tail) / error, least_deviation);
            const double weight = std::min(1.0, tail_outlier_deviations / deviation) / (error * error);
            weight_sum += weight;
            sum += weight * own_tail;
        }
        tail = std::clamp(sum / weight_sum, 0.0, largest_tail);
    }
    return tail;
}

IonCounts count_ions(const SearchContext& context, std::span<const FittedPeak> peaks, double tail_fraction) {
    auto cores = cores_of(context, peaks, tail_fraction);
    const double expected = context.model.counts_per_ion;
    remove_common_misfit(cores, expected);
    const double pull = expectation_samples / (expected * expected);
    const double least = least_counts_part * expected;
    double estimate = expected;
    for (int round = 0; round < counts_rounds; ++round) {
        const CoreSums sums = sums_over(cores, estimate);
        estimate = (sums.signal_variance + pull * expected) / (sums.signal_square + pull);
        estimate = std::clamp(estimate, least, most_counts_part * expected);
    }
    const CoreSums sums = sums_over(cores, expected);
    // Where a peak is hardly wider than a pulse the fit leaves nothing over.
    const bool nothing_left = estimate <= least;
    const bool correlated = sums.shared_variance > pulse_correlation * sums.own_variance && sums.own_variance > 0;
    return {estimate, sums.freedom >= least_freedom && (nothing_left || correlated)};
}

}  // namespace korvane
