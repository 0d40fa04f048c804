// Finds the second of two peaks where it makes no maximum of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/peak_measurement.h"
#include "instrument/peakfinder/peak_traits.h"

namespace korvane {

/// A peak much wider or more lopsided than the law of widths and the late ions allow may be two. It is taken apart when
/// two peaks of lawful width, more than a width apart, describe its samples clearly better than the one wide peak does.
class ShoulderSearch {
public:
    ShoulderSearch(std::span<const std::int32_t> counts, const SampleAxis& axis, const Background& background,
                   const PeakTraits& traits)
        : counts_(counts), axis_(axis), background_(background), traits_(traits) {}

    /// `peaks` in ascending order of centres; peaks that are two are replaced by them.
    void take_apart(std::vector<FittedPeak>& peaks);

private:
    bool too_wide(const FittedPeak& peak) const;
    bool too_lopsided(const FittedPeak& peak) const;
    /// The two peaks and their neighbours, or nothing.
    std::vector<FittedPeak> taken_apart(std::span<const FittedPeak> neighbourhood, std::size_t index);
    std::vector<PeakShape> two_of(std::span<const FittedPeak> neighbourhood, std::size_t index);
    void take_away(const PeakShape& shape, double sigma, std::size_t first, std::span<double> above) const;
    PeakShape best_match(std::span<const double> above, std::size_t first, double sigma) const;
    bool convincing(std::span<const FittedPeak> before, std::span<const FittedPeak> after, std::size_t index) const;
    double misfit(std::span<const FittedPeak> peaks, double from, double to) const;

    std::span<const std::int32_t> counts_;
    SampleAxis axis_;
    const Background& background_;
    const PeakTraits& traits_;
};

}  // namespace korvane
