// A recording made ready to be played: full axes, flight times and calibrations.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "instrument/replay/axis_fit.h"
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
    std::shared_ptr<const MassTimeCalibration> calibration;
    PeakFinderOptions peak_finder;
};

struct Playback : RecordingHead {
    std::vector<PlayedSpectrum> spectra;  ///< at least one
};

/// Puts one spectrum after the other on its flight-time axis. A calibration that a spectrum states is used where it
/// meets the axis; otherwise the one before is kept as long as it meets it, and else one is fitted (`fit_axis`), whose
/// misfit is noted where it does not. Mass values of recorded samples stay as they are; those of samples put back are
/// the law's.
class AxisKeeper {
public:
    AxisKeeper(std::string file, Notes& notes) : file_(std::move(file)), notes_(notes) {}

    /// Fails as `fit_axis` does, and for spectra that have too many samples with those put back.
    PlayedSpectrum play(const RecordedSpectrum& spectrum);

private:
    bool same_axis(const RecordedSpectrum& spectrum) const;
    void set_axis(const RecordedSpectrum& spectrum, const RecordingPlace& place);
    bool use_stated(const RecordedSpectrum& spectrum);
    bool use_last(const RecordedSpectrum& spectrum);
    bool adopt(const std::vector<double>& mz, const std::shared_ptr<const MassTimeCalibration>& calibration,
               const TimeScale& scale);
    std::int64_t sample_count() const { return axis_.positions.steps.back() - axis_.positions.steps.front() + 1; }
    double time_at(std::int64_t step) const {
        return axis_.scale.origin_ns + static_cast<double>(step) * axis_.scale.interval_ns;
    }
    std::size_t place_of(std::size_t sample) const {
        return static_cast<std::size_t>(axis_.positions.steps[sample] - axis_.positions.steps.front());
    }
    VariantArray<double> full_masses(const std::vector<double>& mz) const;
    VariantArray<double> spread(const std::vector<double>& intensity) const;

    std::string file_;
    Notes& notes_;
    RecordedSpectrum last_;  // without its abundances
    AxisFit axis_;
    VariantArray<double> mass_data_;
    std::int64_t total_samples_ = 0;
};

/// All spectra of a recording.
Playback prepare_playback(const Recording& recording);

}  // namespace korvane::replay
