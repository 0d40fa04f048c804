// Measures candidates: alone where they stand alone, together where they overlap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/gaussian_fit.h"
#include "instrument/peakfinder/peak_traits.h"

namespace korvane {

/// In samples from the spectrum's first, and counts above the baseline.
struct FittedPeak {
    PeakFit fit;
    double start = 0;
    double end = 0;
    std::int32_t samples = 0;  ///< between start and end that rise above the noise
    double area = 0;
    double area_error = 0;
    double late_excess = 0;  ///< counts beyond two deviations after the centre less those before it, model subtracted
    double baseline = 0;     ///< counts
    bool alone = true;       ///< no other peak within reach
};

class PeakMeasurement {
public:
    PeakMeasurement(std::span<const std::int32_t> counts, const SampleAxis& axis, const Background& background,
                    const PeakTraits& traits)
        : counts_(counts), axis_(axis), background_(background), traits_(traits) {}

    /// `candidates` in ascending order of centres; one result for each.
    std::vector<FittedPeak> measure(std::span<const PeakShape> candidates);

private:
    void measure_group(std::span<const PeakShape> candidates);
    void fit_together(std::span<FittedPeak> group);
    void fit_one(std::span<FittedPeak> group, std::size_t index);
    void load_samples(std::span<const FittedPeak> group, std::size_t index);
    void mark_saturated();
    bool add_neighbour(const PeakShape& shape, double left, double right);
    void complete(std::span<FittedPeak> group, std::size_t index);
    void sum_samples(const BackgroundLevel& level, FittedPeak& peak);
    void fall_back(const FitConditions& conditions, PeakFit& fit) const;

    std::span<const std::int32_t> counts_;
    SampleAxis axis_;
    const Background& background_;
    const PeakTraits& traits_;
    GaussianFitter fitter_;
    // Of the peak that is being fitted: its samples, and what the neighbours make of them.
    std::ptrdiff_t first_ = 0;
    std::vector<double> above_;
    std::vector<double> others_;
    std::vector<double> model_;
    std::vector<FittedPeak> measured_;
};

}  // namespace korvane
