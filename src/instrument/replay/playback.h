// A recording made ready to be played: full axes, flight times and calibrations.
#pragma once

#include "instrument/replay/axis_fit.h"
#include "instrument/replay/recording.h"
#include "korvane/instrument.h"

namespace korvane::replay {

struct PlayedSpectrum {
    PolaritySetpoint polarity = PolaritySetpoint::Positive;
    AcquiredSpectrum acquired;  ///< with every sample; counts are 0 where one was left out
    double sampling_interval_ns = 0;
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
    /// `file` is where errors say they are.
    AxisKeeper(RecordingPlace file, Notes& notes) : file_(std::move(file)), notes_(notes) {}

    /// Fails as `fit_axis` does, and for spectra that have too many samples with those put back.
    PlayedSpectrum play(const RecordedSpectrum& spectrum) {
        const RecordingPlace place{file_.file, spectrum.id, file_.source};
        if (!axis_.calibration || last_ != spectrum) {
            set_axis(spectrum, place);
            last_ = spectrum;
        }
        total_samples_ += sample_count();
        if (total_samples_ > largest_recording_samples)
            place.fail("with the samples that were left out the spectra have more than ", largest_recording_samples,
                       " samples");
        AcquiredSpectrum acquired;
        acquired.retention_time = spectrum.scan_start_minutes;
        acquired.start_time_ns = time_at(axis_.positions.steps.front());
        acquired.mass_data = mass_data_;
        acquired.y_data = spread(spectrum.intensity);
        return {spectrum.polarity, acquired, axis_.scale.interval_ns, axis_.calibration, spectrum.peak_finder};
    }

private:
    void set_axis(const RecordedAxis& spectrum, const RecordingPlace& place) {
        if (!use_stated(spectrum) && !use_last(spectrum)) {
            axis_ = fit_axis(spectrum.mz, {spectrum.first_flight_time_ns, spectrum.sampling_interval_ns}, place);
            if (!spectrum.sampling_interval_ns)
                notes_.add("sampling interval not stated: taken as ", axis_.scale.interval_ns, " ns");
            if (!axis_.positions.met())
                notes_.add("no flight-time law meets the axis: by the nearest, samples lie up to ",
                           std::round(1000 * axis_.positions.worst_deviation_steps) / 1000, " of a step off");
        }
        const auto samples = static_cast<std::int64_t>(spectrum.mz.size());
        const std::int64_t most = std::min(largest_spectrum_samples, most_samples_for_one * samples);
        if (sample_count() > most)
            place.fail("m/z array: with the samples that were left out there are ", sample_count(), ", more than ",
                       most);
        mass_data_ = full_masses(spectrum.mz);
    }

    bool use_stated(const RecordedAxis& spectrum) {
        if (!spectrum.calibration || !spectrum.first_flight_time_ns) return false;
        const CalibrationObject stated =
            make_square_law_calibration(spectrum.calibration->coefficients, spectrum.calibration->use_flags);
        // Spectra under one law share one object, so that a change of the law can be told.
        const bool same_law = axis_.calibration && last_.calibration == spectrum.calibration;
        return adopt(spectrum.mz, same_law ? axis_.calibration : stated,
                     {*spectrum.first_flight_time_ns, *spectrum.sampling_interval_ns});
    }

    bool use_last(const RecordedAxis& spectrum) {
        if (!axis_.calibration || spectrum.first_flight_time_ns) return false;
        if (spectrum.sampling_interval_ns.value_or(axis_.scale.interval_ns) != axis_.scale.interval_ns) return false;
        return adopt(spectrum.mz, axis_.calibration, axis_.scale);
    }

    bool adopt(const std::vector<double>& mz, const std::shared_ptr<const MassTimeCalibration>& calibration,
               const TimeScale& scale) {
        SamplePositions positions = locate_samples(mz, *calibration, scale);
        if (!positions.met()) return false;
        axis_ = {calibration, scale, std::move(positions)};
        return true;
    }

    std::int64_t sample_count() const { return axis_.positions.steps.back() - axis_.positions.steps.front() + 1; }
    double time_at(std::int64_t step) const {
        return axis_.scale.origin_ns + static_cast<double>(step) * axis_.scale.interval_ns;
    }
    VariantArray<double> full_masses(const std::vector<double>& mz) const {
        std::vector<double> masses;
        masses.reserve(static_cast<std::size_t>(sample_count()));
        for (std::size_t i = 0; i < mz.size(); ++i) {
            for (std::int64_t step = axis_.positions.steps[i == 0 ? 0 : i - 1] + 1; step < axis_.positions.steps[i];
                 ++step)
                masses.push_back(axis_.calibration->mass_from_time(time_at(step)));
            masses.push_back(mz[i]);
        }
        return masses;
    }

    VariantArray<double> spread(const std::vector<double>& intensity) const {
        const auto& steps = axis_.positions.steps;
        std::vector<double> counts(static_cast<std::size_t>(sample_count()));
        for (std::size_t i = 0; i < intensity.size(); ++i)
            counts[static_cast<std::size_t>(steps[i] - steps.front())] = intensity[i];
        return counts;
    }

    RecordingPlace file_;
    Notes& notes_;
    RecordedAxis last_;
    AxisFit axis_;
    VariantArray<double> mass_data_;
    std::int64_t total_samples_ = 0;
};

/// All spectra of a recording.
inline Playback prepare_playback(const Recording& recording) {
    Playback playback{recording, {}};
    AxisKeeper axis({recording.file, {}}, playback.notes);
    for (const RecordedSpectrum& spectrum : recording.spectra) playback.spectra.push_back(axis.play(spectrum));
    return playback;
}

}  // namespace korvane::replay
