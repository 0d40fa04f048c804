// Counts per ion and late ions, from what fits leave over.
#pragma once

#include "instrument/peakfinder/search_steps.h"

namespace korvane {

/// Part of the ions that come late, from the excess of counts after the peaks over those before them; drawn to the
/// usual few percent. With the counts per ion and the pulses of the context's model.
double estimated_tail_fraction(const SearchContext& context, std::span<const FittedPeak> peaks);

struct IonCounts {
    /// From the growth of the variance about the fits with the signal, every sample counting ions of its own; drawn to
    /// the value of the model where there is little to judge by.
    double counts_per_ion;
    /// Whether an ion shows in several samples: neighbouring samples scatter together, or too little for ions that
    /// every sample counts for itself.
    bool are_pulses;
};

/// From what the fits of lone peaks leave over in their middles; `tail_fraction` as `estimated_tail_fraction` gives it.
IonCounts count_ions(const SearchContext& context, std::span<const FittedPeak> peaks, double tail_fraction);

}  // namespace korvane
