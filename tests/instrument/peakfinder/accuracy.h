// Runs the peak finder on synthetic spectra and compares what it finds with the truth.
#pragma once

#include <array>
#include <limits>
#include <vector>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/peakfinder/measured_peak_list.h"
#include "support/synthetic_spectrum.h"

namespace korvane {

struct SearchWindow {
    double start_ns = -std::numeric_limits<double>::infinity();
    double end_ns = std::numeric_limits<double>::infinity();
};

/// With baseline removal, and peaks of three samples at least.
std::vector<MeasuredPeak> find_peaks(PeakFinder& finder, const SyntheticSpectrum& spectrum,
                                     const SearchWindow& window = {});
std::vector<MeasuredPeak> find_peaks(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options = {},
                                     const SearchWindow& window = {});
/// All that the instrument of a synthetic set knows of its peaks.
PeakFinderOptions known_of(const SyntheticSet& set);

using Figures = std::vector<double>;

/// Of spectra of seeds 1 to `spectra`, over the ten calibrants ("strong" are those of 1,000 ions and more): spread of
/// the position over the bound, as geometric mean, and the worst of the strong and of those of 100 ions; number missed;
/// false peaks a spectrum, a second one where one is true among them; part found of the background above ten times the
/// noise; spreads over the bound of the width and of the area of the strong, root mean square and largest, each with
/// the largest deviation of a mean from 1; stated error of the position over the observed one. For searches of whole
/// spectra with known options, of whole ones without, and of windows of 0.1 % of the flight time to either side of a
/// calibrant without, where nothing else is judged.
std::array<Figures, 3> accuracy_of(const SyntheticSet& set, int spectra);

}  // namespace korvane
