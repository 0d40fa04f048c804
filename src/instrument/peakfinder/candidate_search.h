// Finds where the peaks are, before they are measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/gaussian_samples.h"
#include "instrument/peakfinder/peak_traits.h"

namespace korvane {

/// First indexes of the chunks of counts[first, end) that rise above three and a half deviations of the noise. Every
/// peak worth reporting has such a sample, one chunk in 270 of pure noise has one.
std::vector<std::size_t> busy_chunks(std::span<const std::int32_t> counts, const Background& background);

/// Looks at the busy parts of a spectrum more closely: smooths them by a third of a peak's width, takes maxima that
/// stand out from their valleys by more than the statistics of ions and noise allow, and keeps those that are peaks
/// against the noise and against the late ions of a stronger peak before them.
class CandidateSearch {
public:
    CandidateSearch(std::span<const std::int32_t> counts, const SampleAxis& axis, const Background& background,
                    const PeakTraits& traits)
        : counts_(counts), axis_(axis), background_(background), traits_(traits) {}

    /// Start shapes of the peaks in ascending order of their centres.
    std::vector<PeakShape> search(std::span<const std::size_t> chunks);

private:
    struct Region {
        std::size_t first;
        std::size_t end;
        double sigma;
        BackgroundLevel level;
    };
    struct Maximum {
        std::size_t place;  // in the region
        double value;
    };

    void search_region(std::size_t first, std::size_t end);
    void smooth(const Region& region);
    void collect_maxima(const Region& region);
    void drop_close_maxima(const Region& region);
    void judge_maximum(const Region& region, const Maximum& maximum);
    double late_ions_at(double sample) const;
    /// What the maximum stands on where the baseline is not that of its block.
    double pedestal(const Region& region, const Maximum& maximum) const;

    std::span<const std::int32_t> counts_;
    SampleAxis axis_;
    const Background& background_;
    const PeakTraits& traits_;
    std::vector<double> above_;  // counts above the baseline in the region
    std::vector<double> smoothed_;
    std::vector<double> scratch_;
    double smoothing_gain_ = 1;  // sum of the squares of the smoothing weights
    std::vector<Maximum> maxima_;
    std::vector<PeakShape> found_;
};

}  // namespace korvane
