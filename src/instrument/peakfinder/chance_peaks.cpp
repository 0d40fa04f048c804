#include <array>
#include <numbers>

#include "instrument/peakfinder/search_steps.h"

namespace korvane {

using namespace method;

namespace {

/// Counts that no peak explains, and their sums.
class Residual {
public:
    Residual(const SearchContext& context, std::span<const FittedPeak> peaks, const SampleRange& range)
        : range_(range) {
        std::vector<double> left = context.above(range);
        for (const FittedPeak& peak : peaks) {
            const PeakShape& shape = peak.fit.shape;
            const auto reached = context.samples_between(shape.centre - loaded_sigmas * shape.sigma,
                                                         shape.centre + late_reach_sigmas * shape.sigma);
            const Index first = std::max(range.first, reached.first), end = std::min(range.end, reached.end);
            if (first >= end) continue;
            std::vector<double> model(end - first, 0.0);
            add_late_peak_samples(shape, context.late_part(shape.sigma), first, model);
            for (Index i = first; i < end; ++i) left[i - range.first] -= model[i - first];
        }
        sums_.assign(left.size() + 1, 0.0);
        for (std::size_t i = 0; i < left.size(); ++i)
            sums_[i + 1] = sums_[i] + (context.is_saturated(range.first + static_cast<Index>(i)) ? 0 : left[i]);
    }

    struct Stretch {
        double sum = 0, samples = 0;
    };
    Stretch between(double from, double to) const {
        const auto place = [this](double sample) {
            return std::clamp<Index>(static_cast<Index>(std::ceil(sample)) - range_.first, 0, range_.size());
        };
        const Index first = place(from), end = std::max(first, place(to));
        return {sums_[end] - sums_[first], static_cast<double>(end - first)};
    }

private:
    SampleRange range_;
    std::vector<double> sums_;
};

/// Counts a sample that lie about a peak, less what noise alone may make of them.
double level_about(const Residual& residual, const PeakShape& shape, double noise, double counts_per_ion) {
    const auto beside = [&](int direction, double near, double far) {
        return direction < 0 ? residual.between(shape.centre - far * shape.sigma, shape.centre - near * shape.sigma)
                             : residual.between(shape.centre + near * shape.sigma, shape.centre + far * shape.sigma);
    };
    const auto level = [&](const Residual::Stretch& part, double deviations, double own) {
        if (part.samples == 0) return 0.0;
        return (part.sum - own - deviations * noise * std::sqrt(part.samples)) / part.samples;
    };
    double highest = 0;
    std::array<double, 2 * far_sides> far{};
    for (std::size_t i = 0; i < far.size(); ++i) {
        const int direction = i % 2 == 0 ? -1 : 1;
        const double from = middle_sigmas + static_cast<double>(i / 2) * far_side_sigmas;
        far[i] = level(beside(direction, from, from + far_side_sigmas), far_deviations, 0);
        if (i >= 2) continue;
        const auto near = beside(direction, middle_sigmas, near_side_sigmas);
        highest = std::max(highest, level(near, near_deviations, own_side_ions * counts_per_ion));
    }
    std::ranges::nth_element(far, far.begin() + far_sides - 1);
    return std::max(highest, far[far_sides - 1]);
}

/// Whether the ions of a peak are more than chance makes of those that lie about it.
bool stands_out(const SearchContext& context, const Residual& residual, const PeakShape& shape) {
    const double noise_variance = context.noise_variance(shape.centre), ion_variance = context.model.ion_variance();
    const double level = level_about(residual, shape, std::sqrt(noise_variance), context.model.counts_per_ion);
    if (level == 0) return true;
    const double reach = middle_sigmas * shape.sigma;
    const auto [left_over, samples] = residual.between(shape.centre - reach, shape.centre + reach);
    const double own = shape.height * shape.sigma * std::sqrt(2 * std::numbers::pi) + left_over;
    const double variance = (noise_variance + ion_variance * level) * samples;
    // Few ions come in clumps: the quantile of a skewed distribution, by Cornish and Fisher.
    const double third_moment = ion_variance * ion_variance * level * samples;
    const double quantile = least_signal_to_noise;
    return own - level * samples >
           quantile * std::sqrt(variance) + (quantile * quantile - 1) / 6 * third_moment / variance;
}

/// Much wider than the law beside a much stronger peak, or in the very place of a stronger one.
bool is_wing(const SearchContext& context, std::span<const FittedPeak> peaks, std::size_t index) {
    const FittedPeak& peak = peaks[index];
    const double expected = context.expected_sigma(peak.fit.shape.centre);
    const double widening = peak.fit.own_sigma / expected - 1;
    const double chance = std::hypot(peak.fit.sigma_error, context.model.width_spread);
    const bool is_wide = widening > wing_width - 1 && widening > wing_width_deviations * chance;
    const double reach = is_wide ? wing_reach_sigmas : same_place_sigmas;
    for (const int direction : {-1, 1})
        for (Index i = index + direction; i >= 0 && i < std::ssize(peaks); i += direction) {
            const double distance = std::abs(peaks[i].fit.shape.centre - peak.fit.shape.centre) / expected;
            if (distance > reach) break;
            if (peaks[i].area > (distance > same_place_sigmas ? wing_of_area : 1) * peak.area) return true;
        }
    return false;
}

}  // namespace

void mark_chance_peaks(const SearchContext& context, std::span<FittedPeak> peaks) {
    for (std::size_t i = 0; i < peaks.size(); ++i)
        if (is_wing(context, peaks, i)) peaks[i].stands_out = false;
    const auto is_weak = [&](const FittedPeak& peak) {
        return peak.stands_out && peak.area <= surrounded_ions_of_fit * context.model.counts_per_ion;
    };
    const auto reach = [](const FittedPeak& peak) {
        return (middle_sigmas + static_cast<double>(far_sides) * far_side_sigmas) * peak.fit.shape.sigma + 1;
    };
    for (std::size_t first = 0; first < peaks.size();) {
        if (!is_weak(peaks[first])) {
            ++first;
            continue;
        }
        const double from = peaks[first].fit.shape.centre - reach(peaks[first]);
        double to = peaks[first].fit.shape.centre + reach(peaks[first]);
        std::size_t end = first + 1;
        for (; end < peaks.size() && to - from < piece_samples; ++end) {
            const double centre = peaks[end].fit.shape.centre;
            if (centre - reach(peaks[end]) > to) break;
            if (is_weak(peaks[end])) to = std::max(to, centre + reach(peaks[end]));
        }
        const auto begins_before = [&](const FittedPeak& peak) {
            return peak.fit.shape.centre + late_reach_sigmas * peak.fit.shape.sigma < from;
        };
        const auto begin = std::ranges::partition_point(peaks, begins_before);
        const auto stop = std::ranges::partition_point(peaks, [&](const FittedPeak& peak) {
            return peak.fit.shape.centre - loaded_sigmas * peak.fit.shape.sigma < to;
        });
        const Residual residual(context, {begin, std::max(begin, stop)}, context.samples_between(from, to));
        for (; first < end; ++first)
            if (is_weak(peaks[first])) peaks[first].stands_out = stands_out(context, residual, peaks[first].fit.shape);
    }
}

}  // namespace korvane
