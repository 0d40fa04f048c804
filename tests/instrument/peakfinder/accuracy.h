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
PeakListObject run_finder(PeakFinder& finder, const SyntheticSpectrum& spectrum, const SearchWindow& window = {});
std::vector<MeasuredPeak> contents(const PeakList& list);
std::vector<MeasuredPeak> find_peaks(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options = {},
                                     const SearchWindow& window = {});
/// All that the instrument of a synthetic set knows of its peaks.
PeakFinderOptions known_of(const SyntheticSet& set);

class Spread {
public:
    void add(double value);
    double mean() const { return sum_ / number_; }
    double deviation() const;

private:
    double number_ = 0;
    double sum_ = 0;
    double square_sum_ = 0;
};

/// Of one true peak over many spectra.
struct PeakScore {
    double ions = 0;
    Spread position_ns, relative_width, relative_area, stated_position_variance;
    Spread position_bound_variance, width_bound_variance;
    int missed = 0;

    void add(const SyntheticSet& set, const TruePeak& truth, const MeasuredPeak& found);
    void add_bounds(const SyntheticSet& set, const TruePeak& truth, double start_time_ns);
    double position_over_bound() const;
    /// Square of the stated standard error over that of the spread.
    double stated_over_observed_variance() const;
};

/// Over the ten calibrants; "strong" are those of 1,000 ions and more.
struct Accuracy {
    double position = 0;  ///< spread over the bound, geometric mean
    double worst_strong_position = 0;
    double worst_weak_position = 0;  ///< of 100 ions
    int missed = 0;
    double false_peaks = 0;       ///< a spectrum; a second peak where one is true counts as false
    double background_found = 0;  ///< part of those above ten times the noise
    /// Spreads over the bounds, root mean square and largest, and the largest deviation of a mean from 1; strong ones.
    struct Quantity {
        double together = 0;
        double worst = 0;
        double bias = 0;
    } width, area;
    double stated_over_observed = 0;  ///< standard error of the position, root mean square
};

/// Of spectra of seeds 1 to `spectra`: searches of whole spectra with known options, of whole ones without, and of
/// windows of 0.1 % of the flight time to either side of a calibrant without, where nothing else is judged.
std::array<Accuracy, 3> accuracy_of(const SyntheticSet& set, int spectra);

}  // namespace korvane
