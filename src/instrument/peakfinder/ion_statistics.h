// Counts per ion and late ions, from what fits leave over.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/background.h"
#include "instrument/peakfinder/peak_measurement.h"
#include "instrument/peakfinder/peak_traits.h"

namespace korvane {

class IonStatistics {
public:
    IonStatistics(std::span<const std::int32_t> counts, const Background& background, std::span<const FittedPeak> peaks,
                  const PeakTraits& traits, double interval_ns)
        : counts_(counts), background_(background), peaks_(peaks), traits_(traits), interval_ns_(interval_ns) {}

    /// From the growth of the residuals' variance with the signal; drawn to the value of the traits where there is
    /// little to judge by.
    double counts_per_ion() const;
    /// Whether an ion shows in several samples, by the correlation of neighbouring residuals.
    bool neighbours_share_ions() const;
    /// From the excess of counts after the peaks over those before them; drawn to the usual few percent.
    double tail_fraction() const;

private:
    struct Line {
        double signal_square = 0;
        double signal_variance = 0;
        double own_variance = 0;
        double shared_variance = 0;  // with the next sample
    };
    void add_residuals(const FittedPeak& peak, double counts_per_ion, Line& line) const;

    std::span<const std::int32_t> counts_;
    const Background& background_;
    std::span<const FittedPeak> peaks_;
    const PeakTraits& traits_;
    double interval_ns_;
};

}  // namespace korvane
