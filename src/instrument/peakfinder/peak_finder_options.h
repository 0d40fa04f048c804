// What an instrument may know beforehand about its peaks.
#pragma once

#include <optional>

namespace korvane {

/// Width over flight time of the ions that come in time: FWHM(t)^2 = (t / (2 resolution_limit))^2 + detector_fwhm_ns^2.
struct WidthModel {
    double resolution_limit = 0;  ///< m / FWHM in mass of the analyser alone
    double detector_fwhm_ns = 0;
};

/// Everything left out is estimated from the samples of the search.
struct PeakFinderOptions {
    std::optional<WidthModel> width;
    std::optional<double> counts_per_ion;
    /// Relative standard deviation of the counts of one ion.
    std::optional<double> ion_height_spread;
    /// FWHM of the pulse that the detector makes of one ion, where neighbouring samples share ions; 0 where every
    /// sample counts ions of its own. Matters to the standard errors.
    std::optional<double> ion_pulse_fwhm_ns;
    /// Part of the ions that arrive late, by an exponential of 1.5 standard deviations of the ions' arrival.
    std::optional<double> tail_fraction;
    /// How much of the pulse's variance that deviation holds besides: 1 where the whole peak's deviation is meant.
    std::optional<double> tail_pulse_part;
    /// Count at which a sample saturates; samples at or above it are left out of the fits.
    std::optional<double> saturation_counts;
};

}  // namespace korvane
