// Spectra such as other people's instruments give, of known truth, and how well the peak finder does on them. Nothing
// is shared with the simulator or with the synthetic sets: shapes are drawn at random from the ranges of every
// condition.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "korvane/embedded_parts.h"

namespace korvane {

/// A Gaussian, parts of its ions late by an exponential or scattered as a Lorentzian of half its width at half height.
/// Places and lengths in samples.
struct ProfilePeak {
    double centre = 0;
    double ions = 0;
    bool judged = true;  ///< false where only its being found is asked for
};

struct Profile {
    std::size_t samples = 30000;
    double fwhm = 6;  ///< of the Gaussian
    double tail_fraction = 0, tail_sigmas = 1.5;
    double wing_fraction = 0;
    double counts_per_ion = 60;
    double noise_counts = 14;
    double baseline_counts = 300;
    double ripple_deviations = 0, ripple_samples = 6000;
    double step_deviations = 0, step_samples = 5000;
    double clip_part = 0;     ///< of the height of the first peak, where the detector saturates; 0 nowhere
    double digit_counts = 1;  ///< what the counts are multiples of
    std::vector<ProfilePeak> peaks;

    double ions_at(const ProfilePeak& peak, double sample) const;
    double true_fwhm() const;  ///< of the whole shape
    double clip_counts() const;
    std::vector<std::int32_t> draw(std::mt19937_64& random) const;
    /// Standard error of a peak's centre at best, all else known; clipped samples tell nothing.
    double position_bound(const ProfilePeak& peak) const;
};

struct Condition {
    std::string name;
    /// Draws shape and peaks.
    Profile (*profile)(std::mt19937_64& random);
    bool knowing = false;  ///< the finder is given width, counts per ion and late ions
};

const std::vector<Condition>& conditions();

struct ConditionScore {
    double found = 0;              ///< part of the true peaks
    double false_peaks = 0;        ///< a spectrum
    double spread = 0;             ///< of the centroid over the bound, root mean square; a common offset is left out
    double stated = 0;             ///< stated error over the observed one: 1 / root mean square of error / stated error
    double width = 0, height = 0;  ///< mean over the true one
    double flagged = 0;            ///< part of the found peaks that are flagged as clipped
    double milliseconds = 0;       ///< a spectrum
};

/// Over spectra of the seeds from `first_seed` on.
ConditionScore score_of(const Condition& condition, std::uint64_t first_seed, int spectra);

}  // namespace korvane
