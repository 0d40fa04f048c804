// A scene: everything that can be set about the simulated instrument and the sample that it sees. docs/simulator.md
// documents every item; a scene file states only what differs from the default scene.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "instrument/simulator/response_curve.h"
#include "korvane/records.h"

namespace korvane::simulation {

/// A mass-time law as a file states it.
struct CalibrationContent {
    CalibrationCoefficients coefficients;  ///< ns
    CalibrationSettings settings;
    friend bool operator==(const CalibrationContent&, const CalibrationContent&) = default;
};

struct InstrumentSetup {
    std::string model = "K4430A";
    std::string title = "Korvane";
    bool flight_tube_160cm = false;
    bool digitizer_4ghz = true;
    bool dual_source = false;
    bool positive_post_acceleration = false;
    std::int32_t abundance_reduction = 0;
    double transients_per_second = 6200;
    std::int32_t spectrum_period_ms = 0;  ///< time on the clock that a spectrum takes
    double spectrum_start_ns = 10000;     ///< flight time of the first sample
    double spectrum_duration_ns = 150000;
    bool random_phase = false;  ///< a start time of its own for each spectrum, up to one sample later
    friend bool operator==(const InstrumentSetup&, const InstrumentSetup&) = default;
};

struct FlightSetup {
    /// The law by which ions fly; also the calibration that the instrument lends unless a polarity has its own.
    CalibrationContent law{{.A = 4.5e-4, .B = 20.0}, {0, 1, 1}};
    std::vector<std::int32_t> use_flags = std::vector<std::int32_t>(8, 0);
    std::array<std::optional<CalibrationContent>, 2> lent;  ///< by polarity
    double mass_drift_ppm_per_minute = 0;
    friend bool operator==(const FlightSetup&, const FlightSetup&) = default;
};

struct PeakShapeSetup {
    double resolution_limit = 40000;  ///< R of FWHM^2 = (t / 2R)^2 + detector^2
    double detector_width_ns = 1.18;
    double tail_fraction = 0.08;           ///< of the ions, delayed by an exponential ...
    double tail_length_sigmas = 1.5;       ///< ... of this mean
    double reference_sigmas = 0.065;       ///< by how much the centre precedes the flight time of the mass
    double high_resolution_factor = 1.25;  ///< on the resolution limit
    double high_resolution_transmission = 0.5;
    friend bool operator==(const PeakShapeSetup&, const PeakShapeSetup&) = default;
};

enum class DetectorStatistics { counting, pulse };

struct DetectorSetup {
    DetectorStatistics statistics = DetectorStatistics::counting;
    std::array<double, 3> counts_per_ion{25, 40, 64};  ///< summed over the samples, at 1, 2 and 4 GHz
    double pulse_height_spread = 0.5;                  ///< coefficient of variation
    double noise_counts = 0.45;                        ///< rms a sample and transient
    double baseline_counts = 0.3;                      ///< a sample and transient
    double baseline_drift = 0.1;                       ///< relative amplitude of the wave across the spectrum
    double baseline_drift_waves = 1.5;                 ///< waves a spectrum; the phase is drawn for each spectrum
    double preamp_offset_counts = 0.05;                ///< baseline a transient for one unit of setpoint PreAmpOffset
    std::array<double, 4> gain_mode_factors{1, 2, 0.5, 1};
    std::vector<double> dead_masses;  ///< m/z around which all samples read zero
    double dead_half_width_sigmas = 6;
    friend bool operator==(const DetectorSetup&, const DetectorSetup&) = default;
};

struct SceneIon {
    std::string formula;  ///< without charge; empty for an ion given by m/z
    std::optional<double> mz;
    std::int32_t charge = 1;  ///< its sign says in which polarity the ion is seen
    double ions = 0;          ///< a spectrum of the reference transients, all isotopes, at default setpoints
    bool calibrant = true;
    friend bool operator==(const SceneIon&, const SceneIon&) = default;
};

struct SampleSetup {
    std::int32_t reference_transients = 5000;
    std::vector<SceneIon> ions;
    double calibrant_factor = 1;  ///< 0 to 1: how much of the calibrant is left
    double least_isotope_fraction = 0.001;
    friend bool operator==(const SampleSetup&, const SampleSetup&) = default;
};

struct BackgroundSetup {
    std::int32_t count = 300;  ///< in each polarity, log-uniform in m/z and in ions
    double least_ions = 2, most_ions = 100;
    double least_mz = 60, most_mz = 3000;
    double separation_sigmas = 12;  ///< from every other peak
    friend bool operator==(const BackgroundSetup&, const BackgroundSetup&) = default;
};

struct SlicerPositionSetup {
    double hours = 0;
    bool high_resolution = false;
    friend bool operator==(const SlicerPositionSetup&, const SlicerPositionSetup&) = default;
};

inline constexpr std::size_t slicer_position_count = 10;
inline constexpr double most_slicer_hours = 1e9;

/// Spectra number first to first + count - 1, counted from 0 since the start.
struct SpectrumRange {
    std::int64_t first = 0, count = 0;
    bool contains(std::int64_t number) const { return number >= first && number - first < count; }
    friend bool operator==(const SpectrumRange&, const SpectrumRange&) = default;
};

struct SetpointFault {
    std::int32_t index = 0;
    std::optional<std::int64_t> after_spectra;  ///< nothing: the value never arrives
    friend bool operator==(const SetpointFault&, const SetpointFault&) = default;
};

struct FaultSetup {
    SpectrumRange empty_spectra, late_spectra, wrong_polarity;
    std::int32_t late_milliseconds = 0;
    std::int64_t not_ready_polls = 0;  ///< readings of the not-ready state that say -1; -1 for all
    std::int64_t run_state_polls = 0;  ///< readings of the run state before it is pre-run
    std::vector<SetpointFault> setpoints;
    friend bool operator==(const FaultSetup&, const FaultSetup&) = default;
};

struct Scene {
    std::string description = "Calibrant in both polarities, clean instrument";
    InstrumentSetup instrument;
    FlightSetup flight;
    PeakShapeSetup peak_shape;
    DetectorSetup detector;
    SampleSetup sample;
    BackgroundSetup background;
    std::vector<SlicerPositionSetup> slicer;
    std::map<std::string, double> setpoints;  ///< values at the start that differ from the table's, by internal name
    std::vector<ResponseCurve> responses;
    FaultSetup faults;
    friend bool operator==(const Scene&, const Scene&) = default;
};

inline constexpr std::size_t most_scene_bytes = std::size_t{1} << 20;

Scene default_scene();

/// Reads a scene; `file_name` is what errors call it. Error -904 naming the item and the file for anything that is not
/// a complete and consistent scene: unknown keys, values out of range, formulas that cannot be read.
Scene parse_scene(std::string_view text, const std::string& file_name);

}  // namespace korvane::simulation
