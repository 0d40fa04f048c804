// Parts of the embedded instrument: the peak finder and the mass-time law, which it lends to whoever writes an
// instrument layer, how its recordings are opened, and the peaks of files that no instrument has to play.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/records.h"
#include "korvane/system.h"

namespace korvane {

inline constexpr std::int32_t every_ms_level = 0;

/// How a recording is opened, and who is told what it does not say.
struct RecordingOptions {
    /// The MS level that is played; nothing: the lowest that there is.
    std::optional<std::int32_t> ms_level = {};
    /// Of spectra that do not state theirs.
    PolaritySetpoint polarity = PolaritySetpoint::Positive;
    /// Called when the recording is opened, with a line for everything that it does not say and for what was found out
    /// or assumed in its place.
    std::function<void(const std::string&)> tell = {};
};

/// Called before every spectrum with the number of those taken so far; what it raises ends the recording.
using RecordingProgress = std::function<void(std::int32_t taken)>;

/// Width over flight time of the ions that come in time: FWHM(t)^2 = (t / (2 resolution_limit))^2 + detector_fwhm_ns^2.
struct WidthModel {
    double resolution_limit = 0;  ///< m / FWHM in mass of the analyser alone
    double detector_fwhm_ns = 0;
};

/// What an instrument may know beforehand about its peaks. Everything left out is estimated from the samples of the
/// search.
struct PeakFinderOptions {
    std::optional<WidthModel> width;
    std::optional<double> counts_per_ion;
    /// Relative standard deviation of the counts of one ion.
    std::optional<double> ion_height_spread;
    /// FWHM of the pulse that the detector makes of one ion, where neighbouring samples share ions; 0 where every
    /// sample counts ions of its own. Matters to the standard errors.
    std::optional<double> ion_pulse_fwhm_ns;
    /// Part of the ions that arrive late, by an exponential of 1.5 standard deviations of the ions' arrival.
    std::optional<double> tail_fraction;
    /// How much of the pulse's variance that deviation holds besides: 1 where the whole peak's deviation is meant.
    std::optional<double> tail_pulse_part;
    /// Count at which a sample saturates; samples at or above it are left out of the fits.
    std::optional<double> saturation_counts;
};

/// A peak finder that measures by fits of the peak shape (docs/peaks.md); `run` never returns null. It looks at the
/// whole spectrum around the search times and states uncertainties. Errors of `run`: 5 naming a sampling interval or a
/// time that is not set or no number.
KORVANE_API std::unique_ptr<PeakFinder> make_peak_finder(const PeakFinderOptions& options = {});

/// A profile spectrum of a file, and its peaks.
struct SearchedSpectrum {
    std::string id;  ///< as the file names it; empty for a text
    std::int32_t ms_level = 1;
    PolaritySetpoint polarity = PolaritySetpoint::Positive;
    double scan_start_minutes = 0;
    PeakListObject peaks;  ///< in amu, ascending; what is in ns elsewhere has no meaning here
};

/// `number` of `spectra`, from 1.
using SpectrumSearched = std::function<void(const SearchedSpectrum& spectrum, std::size_t number, std::size_t spectra)>;

/// Finds the peaks of profile spectra, of whatever analyser: no flight-time law is needed. `file`: mzML as a replay
/// reads it, or a text with a line for each sample, m/z and counts, with blanks, a comma or a semicolon between; empty
/// lines, a line of titles and lines that begin with # are passed over. Samples that were left out count as 0. Calls
/// `searched` for one spectrum after the other; what it raises ends the search. Errors: -904 from "RecordingReader",
/// naming file, spectrum or line and what is wrong.
KORVANE_API void search_profiles(Files& files, const std::string& file, const RecordingOptions& options,
                                 const SpectrumSearched& searched);

/// A calibration by m = (A (t - B))^2 + sum of c_p t^p over the used terms p. `use_flags` is indexed by term number;
/// every 1 takes the next of the coefficients C to H, further ones take nothing. The flight time of a mass is the one
/// at or above B that lies nearest to that of the square law alone. Error 5 for a used term of a negative number.
KORVANE_API CalibrationObject make_square_law_calibration(const CalibrationCoefficients& nanoseconds,
                                                          VariantArray<std::int32_t> use_flags = {},
                                                          const CalibrationSettings& settings = {});

}  // namespace korvane
