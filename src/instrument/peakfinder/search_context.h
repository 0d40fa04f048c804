// What one search looks at, and what its peaks have in common.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"

namespace korvane {

/// As std::floor and std::ceil, of what an index can hold.
inline Index floor_of(double value) {
    const auto whole = static_cast<Index>(value);
    return static_cast<double>(whole) > value ? whole - 1 : whole;
}
inline Index ceil_of(double value) {
    return -floor_of(-value);
}

/// Flight time of the samples of a spectrum.
struct SampleAxis {
    double start_ns = 0;  ///< flight time of sample 0
    double interval_ns = 1;

    double time_ns(double sample) const { return start_ns + sample * interval_ns; }
    double sample(double time_ns) const { return (time_ns - start_ns) / interval_ns; }
};

/// sigma(t)^2 = slope^2 t^2 + floor_ns^2.
struct WidthLaw {
    double slope = 0;
    double floor_ns = 1;

    double sigma_ns(double time_ns) const { return std::sqrt(slope * slope * time_ns * time_ns + floor_ns * floor_ns); }
};

struct PeakModel {
    WidthLaw width;
    double width_spread = method::usual_width_spread;  ///< relative standard deviation of a peak's width about the law
    double counts_per_ion = 1;
    double ion_height_spread = 0;  ///< relative
    double ion_pulse_sigma_ns = 0;
    /// Part of the ions that come late, by an exponential of 1.5 standard deviations of their arrival; with part of the
    /// pulse's variance in that deviation.
    double tail_fraction = 0;
    double tail_pulse_part = 0;
    double saturation_counts = std::numeric_limits<double>::infinity();

    /// What a tail of 1 does to a peak, relative to late ions whose delay goes by the deviation of the whole peak: only
    /// the part of the variance that the ions' arrival makes has late ions, the rest is the pulse of each ion.
    double tail_effect(double sigma_ns) const {
        const double pulse = std::min(1.0, ion_pulse_sigma_ns / sigma_ns);
        const double arrival_variance = 1 - pulse * pulse;
        return arrival_variance + tail_pulse_part * (1 - arrival_variance);
    }
    /// Variance of a sum of counts, per count, that the ions make.
    double ion_variance() const { return counts_per_ion * (1 + ion_height_spread * ion_height_spread); }
};

struct SampleRange {
    Index first = 0;
    Index end = 0;

    Index size() const { return end - first; }
};

struct SearchContext {
    std::span<const std::int32_t> counts;
    SampleAxis axis;
    const Background& background;
    PeakModel model = {};

    /// Standard deviation of a peak at a sample by the law, samples.
    double expected_sigma(double sample) const { return model.width.sigma_ns(axis.time_ns(sample)) / axis.interval_ns; }
    /// Late part of the ions of a peak of that standard deviation in samples, as if their delay went by it.
    double late_part(double sigma) const { return model.tail_fraction * model.tail_effect(sigma * axis.interval_ns); }
    /// Counts above the baseline.
    std::vector<double> above(const SampleRange& range) const {
        std::vector<double> values(range.size());
        background.subtract(range.first, values);
        return values;
    }
    double noise_variance(double sample) const {
        const double noise = background.at(sample).noise;
        return noise * noise;
    }
    bool is_saturated(Index sample) const { return counts[sample] >= model.saturation_counts; }
    /// The samples from `from` to `to`; outside the spectrum the nearest one.
    SampleRange samples_between(double from, double to) const {
        const double last = static_cast<double>(counts.size()) - 1;
        const Index first = ceil_of(std::clamp(from, 0.0, last));
        return {first, std::max(first, floor_of(std::clamp(to, 0.0, last))) + 1};
    }
};

/// Of counts about an origin: their sum, and their mean distance and square of it.
struct Moments {
    double sum = 0;
    double mean = 0;
    double square = 0;
};

template <class Counts>
Moments moments_about(double origin, const SampleRange& range, const Counts& counts) {
    Moments moments;
    for (Index i = range.first; i < range.end; ++i) {
        const double distance = static_cast<double>(i) - origin;
        const double value = counts(i);
        moments.sum += value;
        moments.mean += value * distance;
        moments.square += value * distance * distance;
    }
    moments.mean /= moments.sum;
    moments.square /= moments.sum;
    return moments;
}

}  // namespace korvane
