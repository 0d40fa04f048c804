// One call of the peak finder on a synthetic spectrum.
#pragma once

#include <limits>
#include <vector>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "support/synthetic_spectrum.h"

namespace korvane {

struct FoundPeak {
    PeakInfo record;
    PeakUncertainty uncertainty;
};

struct SearchWindow {
    double start_ns = -std::numeric_limits<double>::infinity();
    double end_ns = std::numeric_limits<double>::infinity();
};

inline PeakListObject run_finder(PeakFinder& finder, const SyntheticSpectrum& spectrum,
                                 const SearchWindow& window = {}) {
    finder.set_sampling_interval_ns(spectrum.interval_ns);
    finder.set_minimum_samples(3);
    finder.set_baseline_removal(1);
    finder.set_search_start_ns(window.start_ns);
    finder.set_search_end_ns(window.end_ns);
    finder.set_samples(spectrum.counts);
    return finder.run(spectrum.start_time_ns);
}

inline std::vector<FoundPeak> contents(const PeakList& list) {
    std::vector<FoundPeak> found;
    for (std::int32_t i = 0; i < list.count(); ++i)
        found.push_back({list.GetPeakAttributeInfo(i, true), list.uncertainty(i).value()});
    return found;
}

inline std::vector<FoundPeak> find_peaks(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options = {},
                                         const SearchWindow& window = {}) {
    const auto finder = make_peak_finder(options);
    return contents(*run_finder(*finder, spectrum, window));
}

/// All that the instrument of a synthetic set knows of its peaks.
inline PeakFinderOptions known_of(const SyntheticSet& set) {
    PeakFinderOptions options;
    options.width = WidthModel{set.resolution_limit, set.detector_fwhm_ns};
    options.counts_per_ion = set.counts_per_ion;
    options.tail_fraction = set.tail_fraction;
    options.saturation_counts = set.saturation_counts;
    if (set.statistics == IonStatistics::Pulse) {
        options.ion_pulse_fwhm_ns = set.detector_fwhm_ns;
        options.ion_height_spread = set.pulse_height_spread;
    }
    return options;
}

}  // namespace korvane
