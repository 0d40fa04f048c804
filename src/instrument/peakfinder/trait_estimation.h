// Estimates from the samples what the peaks of a search have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/gaussian_fit.h"
#include "instrument/peakfinder/peak_traits.h"
#include "korvane/embedded_parts.h"

namespace korvane {

class TraitEstimation {
public:
    TraitEstimation(std::span<const std::int32_t> counts, const SampleAxis& axis, const Background& background,
                    const PeakFinderOptions& options)
        : counts_(counts), axis_(axis), background_(background), options_(options) {}

    /// Good enough to search with: the width that makes the strongest rises stand out most from the noise.
    PeakTraits coarse(std::span<const std::size_t> busy_chunks);
    /// From fits of the strongest candidates and their neighbours; what the options give stays.
    PeakTraits refined(const PeakTraits& coarse, std::span<const PeakShape> candidates);

private:
    struct Rise {
        std::size_t top;
        double height;
    };
    struct StandingOut {
        double ratio;  // sum over square root of width
        double sum;
        double width;  // samples
    };
    struct WidthPoint {
        double time_ns;
        double sigma_ns;
        double relative_error;
        double standing = 0;  // out of the noise, in its deviations
    };

    std::vector<Rise> strongest_rises(std::span<const std::size_t> busy_chunks) const;
    /// The box about a rise, reaching to the sides that are 1, that stands out most from the noise.
    StandingOut standing_out(const Rise& rise, int left, int right) const;
    /// Whether a box from the rise in the direction holds most of what lies there.
    bool ends_within(const Rise& rise, int direction, const StandingOut& box) const;
    WidthPoint coarse_width(const Rise& rise) const;
    double second_moment_sigma(const Rise& rise, double sigma) const;
    double saturation(std::span<const std::size_t> busy_chunks) const;
    std::vector<PeakShape> strongest_with_neighbours(std::span<const PeakShape> candidates) const;
    static double weighted_median(std::vector<WidthPoint>& points);
    static SigmaLaw fit_width_law(std::vector<WidthPoint>& points, const SigmaLaw& otherwise);

    std::span<const std::int32_t> counts_;
    SampleAxis axis_;
    const Background& background_;
    const PeakFinderOptions& options_;
};

}  // namespace korvane
