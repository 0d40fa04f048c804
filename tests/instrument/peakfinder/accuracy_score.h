// Compares found peaks with the truth over many spectra.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "finder_run.h"

namespace korvane {

class Spread {
public:
    void add(double value) {
        number_ += 1;
        sum_ += value;
        square_sum_ += value * value;
    }
    double mean() const { return sum_ / number_; }
    double deviation() const;
    /// Three standard errors of the mean.
    double chance_of_mean() const { return 3 * deviation() / std::sqrt(number_); }

private:
    double number_ = 0;
    double sum_ = 0;
    double square_sum_ = 0;
};

struct CalibrantScore {
    double ions = 0;
    Spread position_ns;
    Spread relative_width;
    Spread relative_area;
    Spread stated_position_variance;
    Spread position_bound_variance;
    Spread width_bound_variance;
    int missed = 0;

    void add(const SyntheticSet& set, const TruePeak& truth, const FoundPeak& found);
    double position_over_bound() const;
    double width_over_bound() const;
    double area_over_bound() const;
    /// Square of the stated standard error over that of the spread.
    double stated_over_observed_variance() const;
};

struct AccuracyScore {
    std::vector<CalibrantScore> calibrants;
    double false_peaks = 0;       ///< a spectrum; a second peak where one is true counts as false
    double background_found = 0;  ///< part of those above ten times the noise
    int spectra = 0;

    double geometric_mean_position() const;
    double stated_over_observed() const;  ///< root mean square over the calibrants
};

enum class SearchBy { WholeSpectrum, Windows };

/// Spectra of seeds 1 to `spectra`. With `Windows` every calibrant is searched alone, within 0.1 % of its flight time,
/// and background and false peaks are not judged.
AccuracyScore score(const SyntheticSet& set, const PeakFinderOptions& options, SearchBy by, int spectra);

}  // namespace korvane
