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
                  const PeakTraits& traits, double interval_ns);

    /// From the growth of the residuals' variance with the signal, every sample counting ions of its own; drawn to the
    /// value of the traits where there is little to judge by.
    double counts_per_ion() const;
    /// Whether an ion shows in several samples: by the correlation of neighbouring residuals, or by residuals too small
    /// for ions that every sample counts for itself, which `counted_per_ion` tells.
    bool ions_are_pulses(double counted_per_ion) const;
    /// From the excess of counts after the peaks over those before them; drawn to the usual few percent. With the
    /// traits as they are now.
    double tail_fraction() const;
    /// The same with the traits as they were at the beginning, without pulses.
    double whole_tail() const { return whole_tail_; }

private:
    /// Of the middle of a peak.
    struct Core {
        struct Sample {
            double model, residual, misfit_square;
        };
        std::vector<Sample> samples;
        double quiet = 0;  // variance of the noise
    };
    /// Sums over the cores.
    struct Line {
        double signal_square = 0;
        double signal_variance = 0;
        double own_variance = 0;
        double shared_variance = 0;  // with the next sample
        double freedom = 0;          // samples more than parameters of the fits
    };
    void collect(const FittedPeak& peak);
    Line line(double counts_per_ion) const;

    std::span<const std::int32_t> counts_;
    const Background& background_;
    std::span<const FittedPeak> peaks_;
    const PeakTraits& traits_;
    double interval_ns_;
    double whole_tail_;
    std::vector<Core> cores_;
};

}  // namespace korvane
