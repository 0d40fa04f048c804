// Calibrants measured for a judgement: record, mass error and its standard error, and flight times over several
// spectra.
#pragma once

#include <cmath>
#include <optional>
#include <vector>

#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"

namespace korvane {

/// One calibrant in one spectrum.
struct MeasuredCalibrant {
    double mass = 0;                                 ///< expected, amu
    PeakInfo ns, amu;                                ///< all zeros where no peak was found
    std::optional<PeakUncertainty> standard_errors;  ///< in ns; nothing from a peak finder that states none
    double ppm_per_ns = 0;                           ///< of the calibration, at the peak
    std::optional<PeakQuality> quality;              ///< nothing from a peak finder that tells none

    bool found() const { return ns != PeakInfo{}; }
    double error_ppm() const { return (amu.pkCentroid - mass) / mass * 1e6; }
    std::optional<double> standard_error_ppm() const {
        return standard_errors ? std::optional(standard_errors->centroid * ppm_per_ns) : std::nullopt;
    }
};

/// Whether two texts of a mass mean the same calibrant: files may state it to fewer digits than the mass list.
inline bool is_same_mass(double mass, double other) noexcept {
    return std::abs(mass - other) < 0.01;
}

/// The default mass list of the instrument's source and polarity. Errors as `TuneGlobals::GetDefaultMassList`.
KORVANE_API VariantArray<double> default_masses(InstrumentGlobals& instrument, TuneGlobals& globals);

/// The calibrants of the next spectrum, in the order of `masses` (amu). The window is to either side, in percent of the
/// flight time; -1 takes the configured one. Errors as `SpectrumParser::GetPeakInfoForCalibrantMasses`.
KORVANE_API std::vector<MeasuredCalibrant> measure_calibrants(SpectrumParser& parser, TuneGlobals& globals,
                                                              const VariantArray<double>& masses,
                                                              double window_percent = -1);

/// The flight time of one calibrant over several spectra.
struct CalibrantTime {
    double mass = 0;          ///< expected, amu
    double time_ns = 0;       ///< mean of the spectra that showed it, weighted by their standard errors
    double error_ns = 0;      ///< standard error of that mean
    std::size_t spectra = 0;  ///< that showed it
};

/// One a calibrant, from `spectra` spectra. Where the peak finder states no standard errors, or the spectra scatter
/// more than they say (by more than chance does in one of a thousand), the error is that of the scatter; 0 where only
/// one spectrum showed the calibrant and none is stated.
KORVANE_API std::vector<CalibrantTime> measure_calibrant_times(SpectrumParser& parser, TuneGlobals& globals,
                                                               const VariantArray<double>& masses, std::size_t spectra);

}  // namespace korvane
