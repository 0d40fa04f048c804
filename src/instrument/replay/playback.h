// A recording made ready to be played: full axes, flight times and calibrations.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "instrument/masstime/square_law_calibration.h"
#include "instrument/replay/recording.h"
#include "korvane/variant_array.h"

namespace korvane::replay {

struct PlayedSpectrum {
    PolaritySetpoint polarity = PolaritySetpoint::Positive;
    double scan_start_minutes = 0;
    double start_time_ns = 0;  ///< flight time of the first sample
    double sampling_interval_ns = 0;
    VariantArray<double> mass_data;  ///< amu of every sample, left-out ones included
    VariantArray<double> y_data;     ///< counts; 0 where a sample was left out
    std::shared_ptr<const SquareLawCalibration> calibration;
    PeakFinderOptions peak_finder;
};

struct Playback {
    std::string file;
    std::int32_t source_code = 0;
    std::map<std::string, double> setpoints;  ///< recorded values by internal name
    std::vector<PlayedSpectrum> spectra;      ///< at least one
};

/// Puts every spectrum on its flight-time axis. A calibration that the recording states is used where it meets the
/// axis; otherwise one is fitted (`fit_axis`), and kept for the spectra after it as long as it meets them. Mass values
/// of recorded samples stay as they are; those of samples put back are the law's. Fails as `fit_axis` does, and for
/// spectra that have too many samples with those put back.
Playback prepare_playback(const Recording& recording);

}  // namespace korvane::replay
