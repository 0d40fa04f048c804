// Weighted fit of one peak's height, centre and width.
#pragma once

#include <optional>

#include "instrument/peakfinder/peak_shape.h"
#include "instrument/peakfinder/search_context.h"

namespace korvane {

/// Marks a sample at the detector's limit, which says nothing about the peak.
inline constexpr double saturated = std::numeric_limits<double>::infinity();

/// What a peak is fitted to: counts above the baseline of samples first, first + 1, ..., or `saturated`.
struct PeakSamples {
    Index first = 0;
    std::vector<double> above;
    /// Part of `above` that neighbouring peaks make; empty or as long as `above`.
    std::vector<double> others;
    BackgroundLevel level;  ///< under the peak

    double other(Index i) const { return others.empty() ? 0 : others[i]; }
};

struct PeakFit {
    PeakShape shape;       ///< with the width drawn towards the expected one as far as the peak's own data are weak
    double own_sigma = 0;  ///< width by the peak's own data, samples
    /// Standard errors: height and own width relative, centre in samples.
    double height_error = 0;
    double centre_error = 0;
    double sigma_error = 0;
    /// Root of chi squared per degree of freedom where the samples are not a Gaussian's by more than chance, else 1.
    /// The errors hold it.
    double misfit = 1;
    bool clipped = false;  ///< saturated samples were left out
    bool valid = false;
};

/// Gaussian least squares with weights 1 / (variance + a part of the height), which is within 2 % of the information
/// bound for the centre also where a few percent of the ions come late. Nothing where it does not converge.
std::optional<PeakFit> fit_gaussian(const SearchContext& context, const PeakSamples& samples, const PeakShape& start);

}  // namespace korvane
