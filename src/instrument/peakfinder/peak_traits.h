// What the peaks of one search have in common.
#pragma once

#include <limits>

#include "instrument/peakfinder/sample_axis.h"

namespace korvane {

/// sigma(t)^2 = slope^2 t^2 + floor_ns^2.
struct SigmaLaw {
    double slope = 0;
    double floor_ns = 1;

    double sigma_ns(double time_ns) const;
    /// Whether the other law gives widths within `part` of this one's all the way from start to end.
    bool agrees(const SigmaLaw& other, double start_ns, double end_ns, double part) const;
};

struct PeakTraits {
    SigmaLaw width;
    double width_spread = 0.05;  ///< relative standard deviation of a peak's width about the law
    double counts_per_ion = 1;
    double ion_height_spread = 0;  ///< relative
    double ion_pulse_sigma_ns = 0;
    /// Part of the ions that come late, by an exponential of 1.5 standard deviations of their arrival; with part of the
    /// pulse's variance in that deviation.
    double tail_fraction = 0;
    double tail_pulse_part = 0;
    double saturation_counts = std::numeric_limits<double>::infinity();

    /// Part of a peak's variance that the ions' arrival makes; the rest is the pulse of each ion.
    double arrival_part(double sigma_ns) const {
        const double part = ion_pulse_sigma_ns / sigma_ns;
        return part < 1 ? 1 - part * part : 0;
    }
    /// What a tail of 1 does to a peak, relative to late ions whose delay goes by the deviation of the whole peak.
    double tail_effect(double sigma_ns) const {
        const double arrival = arrival_part(sigma_ns);
        return arrival + tail_pulse_part * (1 - arrival);
    }
    /// Variance of a sum of counts, per count, that the ions make.
    double ion_variance() const { return counts_per_ion * (1 + ion_height_spread * ion_height_spread); }

    double sigma_samples(const SampleAxis& axis, double sample) const {
        return width.sigma_ns(axis.time_ns(sample)) / axis.interval_ns;
    }
};

}  // namespace korvane
