// Synthetic spectra whose true peaks are known, to compare measurements with.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "korvane/peak_finder.h"

namespace korvane {

enum class IonStatistics {
    Counting,  ///< every sample holds an independent Poisson number of ions
    Pulse      ///< every ion is one detector pulse of random height, so that neighbouring samples are correlated
};

/// What a kind of spectrum is drawn from. FWHM^2 = (t / (2 resolution_limit))^2 + detector_fwhm_ns^2; a part of the
/// ions is delayed by an exponential of `tail_sigmas` standard deviations of their arrival. With `Counting` the arrival
/// has the whole width, with `Pulse` the detector's part of the width belongs to the pulse of every ion.
struct SyntheticSet {
    std::string name;
    std::size_t samples = 150000;
    double interval_ns = 1;
    double resolution_limit = 12000;
    double detector_fwhm_ns = 1.6;
    double counts_per_ion = 25;
    IonStatistics statistics = IonStatistics::Counting;
    double pulse_height_spread = 0.5;  ///< relative standard deviation, pulse statistics only
    double tail_fraction = 0.08;
    double tail_sigmas = 1.5;
    double baseline_counts = 300;
    double baseline_drift = 0.1;  ///< amplitude relative to the baseline
    double noise_counts = 14.2;
    double saturation_counts = 255000;
    int background_ions = 300;

    double fwhm_ns(double time_ns) const;
    double sigma_ns(double time_ns) const { return fwhm_ns(time_ns) / fwhm_per_sigma; }
};

/// The sets "150k", "300k", "600k" and "600k-pulse".
const std::array<SyntheticSet, 4>& accuracy_sets();

struct TruePeak {
    double time_ns = 0;  ///< centre of the undelayed ions
    double ions = 0;     ///< expected number
    bool calibrant = false;
};

struct SyntheticSpectrum {
    std::vector<std::int32_t> counts;
    double start_time_ns = 0;
    double interval_ns = 1;
    std::vector<TruePeak> peaks;  ///< in the order of flight time
};

/// Ten calibrants of 10000, 3000, 1000, 300 and 100 ions, twice, and the set's background ions, at a random sub-sample
/// phase, sqrt(m/z) = 4.5e-4/ns x (t - 20 ns). The same set and seed give the same spectrum.
SyntheticSpectrum synthesize(const SyntheticSet& set, std::uint64_t seed);
/// The given peaks alone; the first sample lies at `start_time_ns` and `samples` of the set are made.
SyntheticSpectrum synthesize_peaks(const SyntheticSet& set, const std::vector<TruePeak>& peaks, double start_time_ns,
                                   std::uint64_t seed);

/// Expected counts of a peak above the baseline in a sample.
double expected_counts(const SyntheticSet& set, const TruePeak& peak, double sample_time_ns);

/// Full width at half maximum and height of the expected peak, delayed ions included.
struct TrueShape {
    double fwhm_ns;
    double height_counts;
};
TrueShape true_shape(const SyntheticSet& set, const TruePeak& peak);

/// Spread of the ions' arrival about the peak's centre, and the mean delay of the late ones.
struct ArrivalSpread {
    double sigma_ns;
    double tail_ns;
};
ArrivalSpread arrival_spread(const SyntheticSet& set, double time_ns);
/// Density of the arrival, widened to `sigma_ns`, at a distance from the centre.
double arrival_density(const SyntheticSet& set, double sigma_ns, double tail_ns, double distance_ns);
double normal_density(double x);

}  // namespace korvane
