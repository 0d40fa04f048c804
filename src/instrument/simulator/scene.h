// A scene: everything that can be set about the simulated instrument and the sample that it sees. docs/simulator.md
// tells what each item means, the tables in scene.cpp where its limits are; a scene file states only what differs from
// the default scene, which is data/scenes/default.json, compiled into the library.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "instrument/embedded/instrument.h"
#include "korvane/records.h"

namespace korvane::simulation {

enum class ResponseTarget { ions, gain, resolution };

enum class ResponseShape {
    rising,           ///< 1 / (1 + exp(-(v - midpoint) / width)): rises to a plateau
    falling,          ///< 1 / (1 + exp((v - midpoint) / width)): a plateau, then falls
    optimum,          ///< 1 / (1 + ((v - midpoint) / width)^2): best at the midpoint
    power,            ///< (v / midpoint)^exponent
    low_mass_cutoff,  ///< 1 / (1 + (v midpoint / m)^exponent): falls with the value, the earlier the lighter the ion
};

inline constexpr double least_default_response = 1e-6;  ///< of a curve at its setpoint's default value
inline constexpr double greatest_response = 1e6;

struct ResponseCurve {
    std::int32_t setpoint = 0;
    ResponseTarget acts_on = ResponseTarget::ions;
    ResponseShape shape = ResponseShape::rising;
    double midpoint = 0;
    double width = 1;
    double exponent = 1;
    double mass_exponent = 0;                  ///< the midpoint is multiplied by (m / 1000)^mass_exponent
    std::vector<std::int32_t> sources;         ///< source type codes for which it holds; empty: all
    std::optional<PolaritySetpoint> polarity;  ///< nothing: both

    bool holds_for(std::int32_t source_type, std::int32_t spectrum_polarity) const;
    /// Unnormalised response, not negative, at a setpoint value and a mass.
    double raw(double value, double mz) const;
    /// Response relative to the one at the setpoint's default value, which is 1; at most `greatest_response`.
    double relative(double value, double mz) const;
};

struct InstrumentSetup : embedded::Hardware {
    double transients_per_second = 0;
    std::int32_t spectrum_period_ms = 0;
    double spectrum_start_ns = 0, spectrum_duration_ns = 0;
    bool random_phase = false;
};

struct FlightSetup {
    embedded::CalibrationContent law;
    std::vector<std::int32_t> use_flags;
    double mass_drift_ppm_per_minute = 0;
};

struct PeakShapeSetup {
    double resolution_limit = 0, detector_width_ns = 0;
    double tail_fraction = 0, tail_length_sigmas = 0;
    double reference_sigmas = 0;
    double high_resolution_factor = 0, high_resolution_transmission = 0;
};

enum class DetectorStatistics { counting, pulse };

struct DetectorSetup {
    DetectorStatistics statistics = DetectorStatistics::counting;
    std::array<double, 3> counts_per_ion{};
    double pulse_height_spread = 0;
    double noise_counts = 0, baseline_counts = 0;
    double baseline_drift = 0, baseline_drift_waves = 0;
    double preamp_offset_counts = 0;
    std::array<double, 4> gain_mode_factors{};
    std::vector<double> dead_masses;
    double dead_half_width_sigmas = 0;
};

/// Given by its formula or by its m/z.
struct SceneIon {
    std::string formula;
    std::optional<double> mz;
    std::int32_t charge = 1;
    double ions = 0;
    bool calibrant = true;
};

struct SampleSetup {
    std::int32_t reference_transients = 5000;
    std::vector<SceneIon> ions;
    double calibrant_factor = 1, least_isotope_fraction = 0.001;
};

struct BackgroundSetup {
    std::int32_t count = 300;
    double least_ions = 2, most_ions = 100;
    double least_mz = 60, most_mz = 3000;
    double separation_sigmas = 12;
};

struct SlicerPositionSetup {
    double hours = 0;
    bool high_resolution = false;
};
inline constexpr std::size_t slicer_position_count = 10;

/// Spectra number first to first + count - 1, counted from 0 since the start.
struct SpectrumRange {
    std::int64_t first = 0, count = 0;
    bool contains(std::int64_t number) const { return number >= first && number - first < count; }
};

/// A change of the setpoint arrives after some spectra, or never.
struct SetpointFault {
    std::int32_t setpoint = 0;
    std::optional<std::int64_t> after_spectra;
    bool never = false;
};

struct FaultSetup {
    SpectrumRange empty_spectra, late_spectra, wrong_polarity;
    std::int32_t late_milliseconds = 0;
    std::int64_t not_ready_polls = 0, run_state_polls = 0;
    std::vector<SetpointFault> setpoints;
};

struct Scene {
    std::string description;
    InstrumentSetup instrument;
    FlightSetup flight;
    PeakShapeSetup peak_shape;
    DetectorSetup detector;
    SampleSetup sample;
    BackgroundSetup background;
    std::array<SlicerPositionSetup, slicer_position_count> slicer;
    std::map<std::string, double> setpoints;  ///< values at the start that differ from the table's, by internal name
    std::vector<ResponseCurve> responses;
    FaultSetup faults;
};

inline constexpr std::size_t most_scene_bytes = std::size_t{1} << 20;

/// What is compiled in: "default.json".
struct SceneFile {
    std::string_view name, bytes;
};
std::vector<SceneFile> scene_files();

const Scene& default_scene();

/// Reads a scene; `file_name` is what errors call it. Error -904 naming the item and the file for anything that is not
/// a complete and consistent scene: unknown keys, values out of range, formulas that cannot be read.
Scene parse_scene(std::string_view text, const std::string& file_name);

/// What the instrument keeps from one program to the next. A part that the file does not hold is absent and leaves the
/// instrument as the scene has it.
struct InstrumentState {
    struct Calibrations {
        std::optional<embedded::CalibrationContent> positive, negative;
        auto& operator[](std::size_t polarity) { return polarity == 0 ? positive : negative; }
    };
    std::map<std::string, double> setpoints;  ///< commanded values by internal name
    Calibrations calibrations;
    std::optional<std::array<double, slicer_position_count>> slicer_hours;
};

inline constexpr std::size_t most_state_bytes = std::size_t{1} << 16;

/// As `parse_scene`, of a state.
InstrumentState parse_state(std::string_view text, const std::string& file_name);
/// The text that `parse_state` reads back exactly, of a state without absent parts.
std::string state_text(const InstrumentState& state);

}  // namespace korvane::simulation
