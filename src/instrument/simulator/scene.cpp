// The items of scenes and state files: tables from which they are read, checked, written and documented.
#include "instrument/simulator/scene.h"

#include <fmt/format.h>

#include "instrument/simulator/isotope_pattern.h"
#include "instrument/simulator/json_fields.h"
#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

static void to_json(nlohmann::json& json, const CalibrationCoefficients& c) {
    json = {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H};
}

}  // namespace korvane

namespace korvane::simulation {

namespace {

constexpr double most_spectra = 0x1p40;
constexpr double huge = 1e12;
constexpr double most_ions_of_peak = 1e7, most_mz = 1e7;
constexpr double most_duration_ns = 5e7;
constexpr double most_slicer_hours = 1e9;
constexpr const char* state_format = "korvane simulator state";

struct StateFileContent : InstrumentState {
    std::string format = state_format;
    std::int32_t version = 1;
};

}  // namespace

using embedded::CalibrationContent;

template <>
inline constexpr const char* plural<SlicerPositionSetup> = "positions";

// Values that are not as their type says.

void read(const JsonItem& item, CalibrationCoefficients& coefficients, const Bounds&) {
    auto& c = coefficients = {};
    const std::array<double*, 8> slots{&c.A, &c.B, &c.C, &c.D, &c.E, &c.F, &c.G, &c.H};
    const auto values = item.elements(slots.size());
    if (values.size() < 2) item.refuse("must have at least A and B");
    for (std::size_t i = 0; i < values.size(); ++i) *slots[i] = values[i].number({});
    if (!(c.A > 0.0)) values[0].refuse("must be above 0");
}
/// Setpoint values by internal name.
void read(const JsonItem& item, std::map<std::string, double>& values, const Bounds&) {
    values.clear();
    for (const auto& [name, value] : item.members()) {
        const auto* definition = embedded::find_setpoint(name);
        if (!definition) value.refuse("unknown setpoint");
        const Bounds limits{definition->lower_limit, definition->upper_limit};
        const bool whole = definition->type != embedded::SetpointType::real;
        values[name] = whole ? static_cast<double>(value.whole_number(limits)) : value.number(limits);
    }
}

/// A setpoint's index by its internal name.
template <auto pointer, class Object = decltype(class_of(pointer))>
constexpr Access<Object> setpoint_name{[](const JsonItem& item, Object& object, const Bounds&) {
                                           const auto* definition = embedded::find_setpoint(item.text());
                                           if (!definition) item.refuse("unknown setpoint[" + item.text() + "]");
                                           object.*pointer = definition->index;
                                       },
                                       [](const Object& object) -> nlohmann::json {
                                           return embedded::setpoint_definition(object.*pointer).internal_name;
                                       }};

/// A lent calibration, where what is missing is as the law says.
template <auto pointer>
constexpr Access<FlightSetup> lent_calibration{[](const JsonItem& item, FlightSetup& flight, const Bounds& bounds) {
                                                   read(item, (flight.*pointer).emplace(flight.law), bounds);
                                               },
                                               [](const FlightSetup& flight) { return written(flight.*pointer); }};

// Rules over several fields.

void check(const JsonItem& item, const SceneIon& ion) {
    if (ion.formula.empty() == !ion.mz.has_value()) item.refuse("must have either a formula or an m/z");
    if (ion.charge == 0) item.refuse("charge must not be 0");
    if (ion.mz) return;
    try {
        parse_formula(ion.formula);
    } catch (const Error& fault) {
        item.refuse(fault.description());
    }
}

void check(const JsonItem& item, const BackgroundSetup& setup) {
    if (const auto most = item.member("most_ions")) most->number({setup.least_ions, most_ions_of_peak});
    if (const auto most = item.member("most_mz")) most->number({setup.least_mz, most_mz});
}

void check(const JsonItem& item, const ResponseCurve& curve) {
    const bool needs_positive = curve.shape == ResponseShape::power || curve.shape == ResponseShape::low_mass_cutoff;
    if (needs_positive && curve.midpoint <= 0.0) item.refuse("midpoint must be above 0 for this shape");
    const double at_default = embedded::setpoint_definition(curve.setpoint).default_value;
    if (!(curve.raw(at_default, 1000.0) >= least_default_response))
        item.refuse("gives next to nothing at the setpoint's default value");
}

void check(const JsonItem& item, const SetpointFault& fault) {
    if (fault.never == fault.after_spectra.has_value()) item.refuse("must have either after_spectra or never");
}

void check(const JsonItem& item, const InstrumentState::Calibrations&) {
    for (const auto& [polarity, calibration] : item.members()) calibration.required("coefficients");
}

void check(const JsonItem& item, const StateFileContent& content) {
    if (content.format != state_format) item.required("format").refuse(std::string("must be \"") + state_format + "\"");
}

// The tables.

template <>
inline constexpr auto choices<DetectorStatistics> = std::to_array<Choice<DetectorStatistics>>(
    {{"counting", DetectorStatistics::counting}, {"pulse", DetectorStatistics::pulse}});

template <>
inline constexpr auto choices<ResponseTarget> = std::to_array<Choice<ResponseTarget>>(
    {{"ions", ResponseTarget::ions}, {"gain", ResponseTarget::gain}, {"resolution", ResponseTarget::resolution}});

template <>
inline constexpr auto choices<ResponseShape> =
    std::to_array<Choice<ResponseShape>>({{"rising", ResponseShape::rising},
                                          {"falling", ResponseShape::falling},
                                          {"optimum", ResponseShape::optimum},
                                          {"power", ResponseShape::power},
                                          {"low_mass_cutoff", ResponseShape::low_mass_cutoff}});

template <>
inline constexpr auto choices<PolaritySetpoint> = std::to_array<Choice<PolaritySetpoint>>(
    {{"positive", PolaritySetpoint::Positive}, {"negative", PolaritySetpoint::Negative}});

template <>
inline constexpr auto fields<CalibrationSettings> = std::to_array<Field<CalibrationSettings>>({
    {"CalReserved1", member<&CalibrationSettings::CalReserved1>},
    {"CalTraditionalWeighting", member<&CalibrationSettings::CalTraditionalWeighting>},
    {"CalPolynomialWeighting", member<&CalibrationSettings::CalPolynomialWeighting>},
});

template <>
inline constexpr auto fields<CalibrationContent> = std::to_array<Field<CalibrationContent>>({
    {"coefficients", member<&CalibrationContent::coefficients>, {}, "ns", "A, B, C ... H"},
    {"settings", member<&CalibrationContent::settings>},
});

template <>
inline constexpr auto fields<InstrumentSetup> = [] {
    using S = InstrumentSetup;
    return std::to_array<Field<S>>({
        {"model", member<&S::model, S>, {}, "", "\"K4410...\" selects other defaults of the tune parameter file"},
        {"title", member<&S::title, S>, {}, "", "of the instrument"},
        {"flight_tube_160cm", member<&S::flight_tube_160cm, S>, {}, "", "extended mass range query"},
        {"digitizer_4ghz", member<&S::digitizer_4ghz, S>, {}, "", "hardware option 4"},
        {"dual_source", member<&S::dual_source, S>, {}, "", "hardware option 13"},
        {"positive_post_acceleration", member<&S::positive_post_acceleration, S>, {}, "", "of the pulse-height target"},
        {"abundance_reduction", member<&S::abundance_reduction, S>, {-32768, 32767}, "", "abundance-reduction setting"},
        {"transients_per_second", member<&S::transients_per_second>, {1, 1e6}, "1/s"},
        {"spectrum_period_ms", member<&S::spectrum_period_ms>, {0, 3600000}, "ms", "of the clock, for a spectrum"},
        {"spectrum_start_ns", member<&S::spectrum_start_ns>, {0, 1e9}, "ns", "flight time of the first sample"},
        {"spectrum_duration_ns", member<&S::spectrum_duration_ns>, {10, most_duration_ns}, "ns"},
        {"random_phase", member<&S::random_phase>, {}, "", "each spectrum starts later by a random part of a sample"},
    });
}();

template <>
inline constexpr auto fields<FlightSetup> = [] {
    using S = FlightSetup;
    return std::to_array<Field<S>>({
        {"law", member<&S::law>, {}, "", "by which ions fly, and which is lent"},
        {"use_flags", member<&S::use_flags>, {0, 1, 32}, "", "1 for the terms t^p that law and calibrations use"},
        {"lent_positive", lent_calibration<&S::lent_positive>, {}, "", "lent at the start, where it is not the law"},
        {"lent_negative", lent_calibration<&S::lent_negative>, {}, "", "the same"},
        {"mass_drift_ppm_per_minute", member<&S::mass_drift_ppm_per_minute>, {-1000, 1000}, "ppm/min", "of all masses"},
    });
}();

template <>
inline constexpr auto fields<PeakShapeSetup> = [] {
    using S = PeakShapeSetup;
    return std::to_array<Field<S>>({
        {"resolution_limit", member<&S::resolution_limit>, {100, 1e7}, "", "R of the width"},
        {"detector_width_ns", member<&S::detector_width_ns>, {0.01, 1000}, "ns", "d of the width"},
        {"tail_fraction", member<&S::tail_fraction>, {0, 1}, "", "part of the ions that is delayed"},
        {"tail_length_sigmas", member<&S::tail_length_sigmas>, {0.1, 5}, "sigma", "their mean delay"},
        {"reference_sigmas", member<&S::reference_sigmas>, {-5, 5}, "sigma", "by which the centre precedes the mass"},
        {"high_resolution_factor", member<&S::high_resolution_factor>, {0.01, 100}, "", "on R, of slicer positions"},
        {"high_resolution_transmission", member<&S::high_resolution_transmission>, {0, 1}, "", "and on the ions"},
    });
}();

template <>
inline constexpr auto fields<DetectorSetup> = [] {
    using S = DetectorSetup;
    return std::to_array<Field<S>>({
        {"statistics", member<&S::statistics>, {}, "", "\"counting\" or \"pulse\""},
        {"counts_per_ion", member<&S::counts_per_ion>, {0.01, 10000}, "counts", "over all samples, at 1, 2 and 4 GHz"},
        {"pulse_height_spread", member<&S::pulse_height_spread>, {0, 2}, "", "deviation over mean, pulses only"},
        {"noise_counts", member<&S::noise_counts>, {0, 100}, "counts", "rms a sample of one transient"},
        {"baseline_counts", member<&S::baseline_counts>, {0, 255}, "counts", "a sample and transient"},
        {"baseline_drift", member<&S::baseline_drift>, {0, 1}, "", "relative amplitude of the wave"},
        {"baseline_drift_waves", member<&S::baseline_drift_waves>, {0, 100}, "", "in a spectrum"},
        {"preamp_offset_counts", member<&S::preamp_offset_counts>, {0, 10}, "counts", "for 1 of `PreAmpOffset`"},
        {"gain_mode_factors", member<&S::gain_mode_factors>, {0.001, 1000}, "", "on the signal, by `PreAmpGainMode`"},
        {"dead_masses", member<&S::dead_masses>, {1e-3, most_mz, 1000}, "m/z", "around which all samples read zero"},
        {"dead_half_width_sigmas", member<&S::dead_half_width_sigmas>, {0, 1000}, "sigma", "how far around"},
    });
}();

template <>
inline constexpr auto fields<SceneIon> = [] {
    using S = SceneIon;
    return std::to_array<Field<S>>({
        {"formula", member<&S::formula>, {}, "", "of H C N O F Na P S Cl K, counts and parentheses"},
        {"mz", member<&S::mz>, {1e-3, most_mz}, "m/z", "in the place of the formula"},
        {"charge", member<&S::charge>, {-100, 100}, "", "its sign says in which polarity the ion is seen"},
        {"ions", member<&S::ions>, {0, most_ions_of_peak}, "", "a spectrum, all isotopes", true},
        {"calibrant", member<&S::calibrant>, {}, "", "falls with `calibrant_factor`"},
    });
}();

template <>
inline constexpr auto fields<SampleSetup> = [] {
    using S = SampleSetup;
    return std::to_array<Field<S>>({
        {"reference_transients", member<&S::reference_transients>, {1, 50000}, "", "to which `ions` refer"},
        {"ions", member<&S::ions>, {.most_elements = 10000}, "", "the clusters of the calibrant"},
        {"calibrant_factor", member<&S::calibrant_factor>, {0, 1}, "", "what is left of the calibrant"},
        {"least_isotope_fraction", member<&S::least_isotope_fraction>, {1e-6, 1}, "", "peaks below are left out"},
    });
}();

template <>
inline constexpr auto fields<BackgroundSetup> = [] {
    using S = BackgroundSetup;
    return std::to_array<Field<S>>({
        {"count", member<&S::count>, {0, 100000}, "", "peaks of no particular mass, in each polarity"},
        {"least_ions", member<&S::least_ions>, {1e-3, most_ions_of_peak}, "", "log-uniform from here"},
        {"most_ions", member<&S::most_ions>, {1e-3, most_ions_of_peak}, "", "to here"},
        {"least_mz", member<&S::least_mz>, {1, most_mz}, "m/z", "log-uniform from here"},
        {"most_mz", member<&S::most_mz>, {1, most_mz}, "m/z", "to here"},
        {"separation_sigmas", member<&S::separation_sigmas>, {0, 1000}, "sigma", "least distance from any other peak"},
    });
}();

template <>
inline constexpr auto fields<SlicerPositionSetup> = std::to_array<Field<SlicerPositionSetup>>({
    {"hours", member<&SlicerPositionSetup::hours>, {0, most_slicer_hours}, "h", "run"},
    {"high_resolution", member<&SlicerPositionSetup::high_resolution>, {}, "", "is a high-resolution position"},
});

template <>
inline constexpr auto fields<ResponseCurve> = [] {
    using S = ResponseCurve;
    return std::to_array<Field<S>>({
        {"setpoint", setpoint_name<&S::setpoint>, {}, "", "internal name", true},
        {"acts_on", member<&S::acts_on>, {}, "", "\"ions\", \"gain\" or \"resolution\"", true},
        {"shape", member<&S::shape>, {}, "", "see below", true},
        {"midpoint", member<&S::midpoint>, {-huge, huge}, "", "", true},
        {"width", member<&S::width>, {1e-6, huge}, "", "where the shape uses it"},
        {"exponent", member<&S::exponent>, {0.01, 100}, "", "where the shape uses it"},
        {"mass_exponent", member<&S::mass_exponent>, {-10, 10}, "", "multiplies the midpoint by (m / 1000)^it"},
        {"sources", member<&S::sources>, {0, 11, 12}, "", "source type codes for which it holds; none: all"},
        {"polarity", member<&S::polarity>, {}, "", "\"positive\" or \"negative\"; without it both"},
    });
}();

template <>
inline constexpr auto fields<SpectrumRange> = std::to_array<Field<SpectrumRange>>({
    {"first", member<&SpectrumRange::first>, {0, most_spectra}, "", "counted from 0 since the start"},
    {"count", member<&SpectrumRange::count>, {0, most_spectra}},
});

template <>
inline constexpr auto fields<SetpointFault> = std::to_array<Field<SetpointFault>>({
    {"setpoint", setpoint_name<&SetpointFault::setpoint>, {}, "", "internal name", true},
    {"after_spectra", member<&SetpointFault::after_spectra>, {0, most_spectra}, "", "that still have the old value"},
    {"never", member<&SetpointFault::never>, {}, "", "the new value does not arrive"},
});

template <>
inline constexpr auto fields<FaultSetup> = [] {
    using S = FaultSetup;
    return std::to_array<Field<S>>({
        {"empty_spectra", member<&S::empty_spectra>, {}, "", "without arrays"},
        {"late_spectra", member<&S::late_spectra>, {}, "", "take `late_milliseconds` longer"},
        {"wrong_polarity", member<&S::wrong_polarity>, {}, "", "acquired in the other polarity"},
        {"late_milliseconds", member<&S::late_milliseconds>, {0, 3600000}, "ms"},
        {"not_ready_polls", member<&S::not_ready_polls>, {-1, most_spectra}, "", "ready states that say -1; -1: all"},
        {"run_state_polls", member<&S::run_state_polls>, {0, most_spectra}, "", "run states that say 2 before pre-run"},
        {"setpoints", member<&S::setpoints>, {.most_elements = 100}, "", "changes that arrive late or never"},
    });
}();

template <>
inline constexpr auto fields<Scene> = std::to_array<Field<Scene>>({
    {"description", member<&Scene::description>, {}, "", "for readers"},
    {"instrument", member<&Scene::instrument>},
    {"flight", member<&Scene::flight>},
    {"peak_shape", member<&Scene::peak_shape>},
    {"detector", member<&Scene::detector>},
    {"sample", member<&Scene::sample>},
    {"background", member<&Scene::background>},
    {"slicer", member<&Scene::slicer>, {}, "", "the 10 positions"},
    {"setpoints", member<&Scene::setpoints>, {}, "", "values at the start by internal name"},
    {"responses", member<&Scene::responses>, {.most_elements = 200}, "", "how abundance follows the setpoints"},
    {"faults", member<&Scene::faults>},
});

template <>
inline constexpr auto fields<InstrumentState::Calibrations> = std::to_array<Field<InstrumentState::Calibrations>>({
    {"positive", member<&InstrumentState::Calibrations::positive>},
    {"negative", member<&InstrumentState::Calibrations::negative>},
});

template <>
inline constexpr auto fields<StateFileContent> = std::to_array<Field<StateFileContent>>({
    {"format", member<&StateFileContent::format>, {}, "", "", true},
    {"version", member<&StateFileContent::version>, {1, 1}, "", "", true},
    {"setpoints", member<&StateFileContent::setpoints, StateFileContent>},
    {"calibrations", member<&StateFileContent::calibrations, StateFileContent>},
    {"slicer_hours", member<&StateFileContent::slicer_hours, StateFileContent>, {0, most_slicer_hours}},
});

// Clusters of sodium trifluoroacetate: Na+(CF3COONa)n and CF3COO-(CF3COONa)n.
Scene default_scene() {
    constexpr std::array<double, 10> ions{6000, 8000, 10000, 9000, 8000, 6500, 5000, 3500, 2400, 1600};
    Scene scene;
    for (const bool positive : {true, false})
        for (std::size_t i = 0; i < ions.size(); ++i) {
            const std::size_t units = positive ? (i == 0 ? 1 : 2 * i) : (i == 0 ? 0 : 2 * i - 1);
            const std::string clusters = units == 0 ? "" : "(CF3COONa)" + std::to_string(units);
            scene.sample.ions.push_back(
                {(positive ? "Na" : "CF3COO") + clusters, {}, positive ? 1 : -1, ions[i], true});
        }
    scene.responses = default_responses();
    for (std::size_t i = 5; i < scene.slicer.size(); ++i) scene.slicer[i].high_resolution = true;
    return scene;
}

namespace {

/// A heading row, and one row an item: name, default, unit, limits, meaning.
template <class Object>
std::string reference_rows(const std::string& heading) {
    std::string rows = "| **" + heading + "** | | | | |\n";
    for (const Field<Object>& field : fields<Object>) {
        const std::string standard = field.required ? "required" : field.access.write({}).dump();
        const bool is_plain = standard != "null" && standard.find('{') == std::string::npos;
        const bool has_limits = field.bounds.high < Bounds{}.high;
        rows += fmt::format("| `{}` | {} | {} | {} | {} |\n", field.name, is_plain ? standard : "", field.unit,
                            has_limits ? number_text(field.bounds.low) + " to " + number_text(field.bounds.high) : "",
                            field.meaning);
    }
    return rows;
}

}  // namespace

std::string scene_reference() {
    return "| item | default | unit | limits | meaning |\n|---|---|---|---|---|\n" + reference_rows<Scene>("scene") +
           reference_rows<InstrumentSetup>("instrument") + reference_rows<FlightSetup>("flight") +
           reference_rows<CalibrationContent>("law, lent_positive, lent_negative") +
           reference_rows<CalibrationSettings>("settings") + reference_rows<PeakShapeSetup>("peak_shape") +
           reference_rows<DetectorSetup>("detector") + reference_rows<SampleSetup>("sample") +
           reference_rows<SceneIon>("ions, each") + reference_rows<BackgroundSetup>("background") +
           reference_rows<SlicerPositionSetup>("slicer, each position") +
           reference_rows<ResponseCurve>("responses, each") + reference_rows<FaultSetup>("faults") +
           reference_rows<SpectrumRange>("empty, late, wrong spectra") +
           reference_rows<SetpointFault>("faults.setpoints, each");
}

Scene parse_scene(std::string_view text, const std::string& file_name) {
    const nlohmann::json document = parse_json(text, most_scene_bytes, file_name);
    Scene scene = default_scene();
    read(JsonItem(document, "", file_name), scene, {});
    return scene;
}

InstrumentState parse_state(std::string_view text, const std::string& file_name) {
    const nlohmann::json document = parse_json(text, most_state_bytes, file_name);
    StateFileContent content;
    read(JsonItem(document, "", file_name), content, {});
    return content;
}

std::string state_text(const InstrumentState& state) {
    return written(StateFileContent{state}).dump(2) + "\n";
}

}  // namespace korvane::simulation
