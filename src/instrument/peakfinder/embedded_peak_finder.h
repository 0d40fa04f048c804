// The embedded instrument's peak finder.
#pragma once

#include <limits>

#include "korvane/embedded_parts.h"

namespace korvane {

/// Finds the peaks whose centroid lies within the search times (both included). Samples outside the window are used,
/// where there are any, to measure a peak that the window cuts and to know its background. The list is in the order of
/// flight time. Results do not depend on the thread's rounding mode. Errors: 5 naming a sampling interval or a time
/// that is not set or no number.
///
/// The record, with its standard errors beside it in `PeakUncertainty`:
///   pkApexX       ns, top of the fitted peak; error as the centroid's
///   pkStart       ns, where the fitted peak sinks into the noise or to 0.2 % of its height, or meets a neighbour
///   pkArea        counts x samples above the baseline, four deviations before to six after the centroid, late ions
///                 included; of samples shared with a neighbour the peak's part
///   pkCentroid    ns, centre of the weighted fit
///   pkWidth       ns, full width at half maximum by the peak's own samples, late ions included
///   pkHeight      counts, of the fitted peak above the baseline
///   pkResolution  t / (2 pkWidth)
///   pkEnd         ns, as pkStart
/// Without baseline removal height and area stand on zero counts; nothing else changes. A peak has as many samples as
/// rise above the noise between its start and its end. The baseline is the mean over the window.
class EmbeddedPeakFinder final : public PeakFinder {
public:
    explicit EmbeddedPeakFinder(const PeakFinderOptions& options) : options_(options) {}

    /// What the finder was made with.
    const PeakFinderOptions& options() const { return options_; }

    void set_sampling_interval_ns(double interval_ns) override { interval_ns_ = interval_ns; }
    void set_minimum_samples(std::int32_t samples) override { minimum_samples_ = samples; }
    void set_baseline_removal(std::int32_t on) override { baseline_removal_ = on != 0; }
    void set_search_start_ns(double time_ns) override { search_start_ns_ = time_ns; }
    void set_search_end_ns(double time_ns) override { search_end_ns_ = time_ns; }
    void set_samples(std::span<const std::int32_t> counts) override { counts_ = counts; }
    PeakListObject run(double start_time_ns) override;
    double baseline() const override { return baseline_; }

private:
    PeakFinderOptions options_;
    double interval_ns_ = 0;
    std::int32_t minimum_samples_ = 3;
    bool baseline_removal_ = true;
    double search_start_ns_ = -std::numeric_limits<double>::infinity();
    double search_end_ns_ = std::numeric_limits<double>::infinity();
    std::span<const std::int32_t> counts_;
    double baseline_ = 0;
};

}  // namespace korvane
