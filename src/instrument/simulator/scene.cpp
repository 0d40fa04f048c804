// The items of scenes and state files: tables from which they are read, checked, written and documented.
#include "instrument/simulator/scene.h"

#include <fmt/format.h>

#include "instrument/simulator/ion_population.h"
#include "korvane/error.h"
#include "platform/automation_arithmetic.h"
#include "platform/json_fields.h"

namespace korvane {

constexpr auto choices(PolaritySetpoint) {
    using enum PolaritySetpoint;
    return std::to_array<json::Choice<PolaritySetpoint>>({{"positive", Positive}, {"negative", Negative}});
}

template <class Io>
void fields(Io& io, CalibrationSettings& part) {
    io("CalReserved1", part.CalReserved1);
    io("CalTraditionalWeighting", part.CalTraditionalWeighting);
    io("CalPolynomialWeighting", part.CalPolynomialWeighting);
}

namespace simulation {

using embedded::CalibrationContent;
using json::Bounds;
using json::Json;
using json::JsonItem;

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

// Values that are not as their type says.

/// A, B and as many of the others as there are.
struct CoefficientList {
    CalibrationCoefficients& of;
};
void read(const JsonItem& item, CoefficientList list, const Bounds&) {
    list.of = {};
    const auto values = item.elements(std::size(calibration_coefficients));
    if (values.size() < 2) item.refuse("must have at least A and B");
    for (std::size_t i = 0; i < values.size(); ++i) list.of.*calibration_coefficients[i].second = values[i].number({});
    if (!(list.of.A > 0.0)) values[0].refuse("must be above 0");
}
Json written(CoefficientList& list) {
    Json values = Json::array();
    for (const auto& [name, member] : calibration_coefficients) values.push_back(list.of.*member);
    return values;
}

struct ValuesByInternalName {
    std::map<std::string, double>& of;
};
void read(const JsonItem& item, ValuesByInternalName values, const Bounds&) {
    values.of.clear();
    for (const auto& [name, value] : item.members()) {
        const auto* definition = embedded::find_setpoint(name);
        if (!definition) value.refuse("unknown setpoint");
        const Bounds limits{definition->lower_limit, definition->upper_limit};
        const bool whole = definition->type != embedded::SetpointType::real;
        values.of[name] = whole ? static_cast<double>(value.whole_number(limits)) : value.number(limits);
    }
}
Json written(ValuesByInternalName& values) {
    return values.of;
}

/// A setpoint's index by its internal name.
struct InternalName {
    std::int32_t& index;
};
void read(const JsonItem& item, InternalName name, const Bounds&) {
    const auto* definition = embedded::find_setpoint(item.text());
    if (!definition) item.refuse("unknown setpoint[" + item.text() + "]");
    name.index = definition->index;
}
Json written(InternalName& name) {
    return embedded::setpoint_definition(name.index).internal_name;
}

/// Where what is missing is as the law says.
struct LentCalibration {
    std::optional<CalibrationContent>& of;
    const CalibrationContent& law;
};
void read(const JsonItem& item, LentCalibration lent, const Bounds& bounds) {
    read(item, lent.of.emplace(lent.law), bounds);
}
Json written(LentCalibration& lent) {
    return json::written(lent.of);
}

}  // namespace

}  // namespace simulation

namespace embedded {

template <class Io>
void fields(Io& io, CalibrationContent& part) {
    io("coefficients", simulation::CoefficientList{part.coefficients}, {}, "ns", "A, B, C ... H");
    io("settings", part.settings);
}

}  // namespace embedded

}  // namespace korvane

namespace korvane::simulation {

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

constexpr auto choices(DetectorStatistics) {
    using enum DetectorStatistics;
    return std::to_array<json::Choice<DetectorStatistics>>({{"counting", counting}, {"pulse", pulse}});
}

constexpr auto choices(ResponseTarget) {
    using enum ResponseTarget;
    return std::to_array<json::Choice<ResponseTarget>>({{"ions", ions}, {"gain", gain}, {"resolution", resolution}});
}

constexpr auto choices(ResponseShape) {
    using enum ResponseShape;
    return std::to_array<json::Choice<ResponseShape>>({{"rising", rising},
                                                       {"falling", falling},
                                                       {"optimum", optimum},
                                                       {"power", power},
                                                       {"low_mass_cutoff", low_mass_cutoff}});
}

template <class Io>
void fields(Io& io, InstrumentSetup& part) {
    io("model", part.model, {}, "", "\"K4410...\" selects other defaults of the tune parameter file");
    io("title", part.title, {}, "", "of the instrument");
    io("flight_tube_160cm", part.flight_tube_160cm, {}, "", "extended mass range query");
    io("digitizer_4ghz", part.digitizer_4ghz, {}, "", "hardware option 4");
    io("dual_source", part.dual_source, {}, "", "hardware option 13");
    io("positive_post_acceleration", part.positive_post_acceleration, {}, "", "of the pulse-height target");
    io("abundance_reduction", part.abundance_reduction, {-32768, 32767}, "", "abundance-reduction setting");
    io("transients_per_second", part.transients_per_second, {1, 1e6}, "1/s");
    io("spectrum_period_ms", part.spectrum_period_ms, {0, 3600000}, "ms", "of the clock, for a spectrum");
    io("spectrum_start_ns", part.spectrum_start_ns, {0, 1e9}, "ns", "flight time of the first sample");
    io("spectrum_duration_ns", part.spectrum_duration_ns, {10, most_duration_ns}, "ns");
    io("random_phase", part.random_phase, {}, "", "each spectrum starts later by a random part of a sample");
}

template <class Io>
void fields(Io& io, FlightSetup& part) {
    io("law", part.law, {}, "", "by which ions fly, and which is lent");
    io("use_flags", part.use_flags, {0, 1, 32}, "", "1 for the terms t^p that law and calibrations use");
    io("lent_positive", LentCalibration{part.lent_positive, part.law}, {}, "",
       "lent at the start, where it is not the law");
    io("lent_negative", LentCalibration{part.lent_negative, part.law}, {}, "", "the same");
    io("mass_drift_ppm_per_minute", part.mass_drift_ppm_per_minute, {-1000, 1000}, "ppm/min", "of all masses");
}

template <class Io>
void fields(Io& io, PeakShapeSetup& part) {
    io("resolution_limit", part.resolution_limit, {100, 1e7}, "", "R of the width");
    io("detector_width_ns", part.detector_width_ns, {0.01, 1000}, "ns", "d of the width");
    io("tail_fraction", part.tail_fraction, {0, 1}, "", "part of the ions that is delayed");
    io("tail_length_sigmas", part.tail_length_sigmas, {0.1, 5}, "sigma", "their mean delay");
    io("reference_sigmas", part.reference_sigmas, {-5, 5}, "sigma", "by which the centre precedes the mass");
    io("high_resolution_factor", part.high_resolution_factor, {0.01, 100}, "", "on R, of slicer positions");
    io("high_resolution_transmission", part.high_resolution_transmission, {0, 1}, "", "and on the ions");
}

template <class Io>
void fields(Io& io, DetectorSetup& part) {
    io("statistics", part.statistics, {}, "", "\"counting\" or \"pulse\"");
    io("counts_per_ion", part.counts_per_ion, {0.01, 10000}, "counts", "over all samples, at 1, 2 and 4 GHz");
    io("pulse_height_spread", part.pulse_height_spread, {0, 2}, "", "deviation over mean, pulses only");
    io("noise_counts", part.noise_counts, {0, 100}, "counts", "rms a sample of one transient");
    io("baseline_counts", part.baseline_counts, {0, 255}, "counts", "a sample and transient");
    io("baseline_drift", part.baseline_drift, {0, 1}, "", "relative amplitude of the wave");
    io("baseline_drift_waves", part.baseline_drift_waves, {0, 100}, "", "in a spectrum");
    io("preamp_offset_counts", part.preamp_offset_counts, {0, 10}, "counts", "for 1 of `PreAmpOffset`");
    io("gain_mode_factors", part.gain_mode_factors, {0.001, 1000}, "", "on the signal, by `PreAmpGainMode`");
    io("dead_masses", part.dead_masses, {1e-3, most_mz, 1000}, "m/z", "around which all samples read zero");
    io("dead_half_width_sigmas", part.dead_half_width_sigmas, {0, 1000}, "sigma", "how far around");
}

template <class Io>
void fields(Io& io, SceneIon& part) {
    io("formula", part.formula, {}, "", "of H C N O F Na P S Cl K, counts and parentheses");
    io("mz", part.mz, {1e-3, most_mz}, "m/z", "in the place of the formula");
    io("charge", part.charge, {-100, 100}, "", "its sign says in which polarity the ion is seen");
    io("ions", part.ions, {0, most_ions_of_peak}, "", "a spectrum, all isotopes", true);
    io("calibrant", part.calibrant, {}, "", "falls with `calibrant_factor`");
}

template <class Io>
void fields(Io& io, SampleSetup& part) {
    io("reference_transients", part.reference_transients, {1, 50000}, "", "to which `ions` refer");
    io("ions", part.ions, {.most_elements = 10000}, "", "the clusters of the calibrant");
    io("calibrant_factor", part.calibrant_factor, {0, 1}, "", "what is left of the calibrant");
    io("least_isotope_fraction", part.least_isotope_fraction, {1e-6, 1}, "", "peaks below are left out");
}

template <class Io>
void fields(Io& io, BackgroundSetup& part) {
    io("count", part.count, {0, 100000}, "", "peaks of no particular mass, in each polarity");
    io("least_ions", part.least_ions, {1e-3, most_ions_of_peak}, "", "log-uniform from here");
    io("most_ions", part.most_ions, {1e-3, most_ions_of_peak}, "", "to here");
    io("least_mz", part.least_mz, {1, most_mz}, "m/z", "log-uniform from here");
    io("most_mz", part.most_mz, {1, most_mz}, "m/z", "to here");
    io("separation_sigmas", part.separation_sigmas, {0, 1000}, "sigma", "least distance from any other peak");
}

template <class Io>
void fields(Io& io, SlicerPositionSetup& part) {
    io("hours", part.hours, {0, most_slicer_hours}, "h", "run");
    io("high_resolution", part.high_resolution, {}, "", "is a high-resolution position");
}

template <class Io>
void fields(Io& io, ResponseCurve& part) {
    io("setpoint", InternalName{part.setpoint}, {}, "", "internal name", true);
    io("acts_on", part.acts_on, {}, "", "\"ions\", \"gain\" or \"resolution\"", true);
    io("shape", part.shape, {}, "", "see below", true);
    io("midpoint", part.midpoint, {-huge, huge}, "", "", true);
    io("width", part.width, {1e-6, huge}, "", "where the shape uses it");
    io("exponent", part.exponent, {0.01, 100}, "", "where the shape uses it");
    io("mass_exponent", part.mass_exponent, {-10, 10}, "", "multiplies the midpoint by (m / 1000)^it");
    io("sources", part.sources, {0, 11, 12}, "", "source type codes for which it holds; none: all");
    io("polarity", part.polarity, {}, "", "\"positive\" or \"negative\"; without it both");
}

template <class Io>
void fields(Io& io, SpectrumRange& part) {
    io("first", part.first, {0, most_spectra}, "", "counted from 0 since the start");
    io("count", part.count, {0, most_spectra});
}

template <class Io>
void fields(Io& io, SetpointFault& part) {
    io("setpoint", InternalName{part.setpoint}, {}, "", "internal name", true);
    io("after_spectra", part.after_spectra, {0, most_spectra}, "", "that still have the old value");
    io("never", part.never, {}, "", "the new value does not arrive");
}

template <class Io>
void fields(Io& io, FaultSetup& part) {
    io("empty_spectra", part.empty_spectra, {}, "", "without arrays");
    io("late_spectra", part.late_spectra, {}, "", "take `late_milliseconds` longer");
    io("wrong_polarity", part.wrong_polarity, {}, "", "acquired in the other polarity");
    io("late_milliseconds", part.late_milliseconds, {0, 3600000}, "ms");
    io("not_ready_polls", part.not_ready_polls, {-1, most_spectra}, "", "ready states that say -1; -1: all");
    io("run_state_polls", part.run_state_polls, {0, most_spectra}, "", "run states that say 2 before pre-run");
    io("setpoints", part.setpoints, {.most_elements = 100}, "", "changes that arrive late or never");
}

template <class Io>
void fields(Io& io, Scene& part) {
    io("description", part.description, {}, "", "for readers");
    io("instrument", part.instrument);
    io("flight", part.flight);
    io("peak_shape", part.peak_shape);
    io("detector", part.detector);
    io("sample", part.sample);
    io("background", part.background);
    io("slicer", part.slicer, {}, "", "the 10 positions");
    io("setpoints", ValuesByInternalName{part.setpoints}, {}, "", "values at the start by internal name");
    io("responses", part.responses, {.most_elements = 200}, "", "how abundance follows the setpoints");
    io("faults", part.faults);
}

template <class Io>
void fields(Io& io, InstrumentState::Calibrations& part) {
    io("positive", part.positive);
    io("negative", part.negative);
}

template <class Io>
void fields(Io& io, StateFileContent& part) {
    io("format", part.format, {}, "", "", true);
    io("version", part.version, {1, 1}, "", "", true);
    io("setpoints", ValuesByInternalName{part.setpoints});
    io("calibrations", part.calibrations);
    io("slicer_hours", part.slicer_hours, {0, most_slicer_hours});
}

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

/// One row an item: name, default, unit, limits, meaning.
struct ReferenceRows {
    std::string rows;

    template <class Value>
    void operator()(const char* name, Value&& value, const Bounds& bounds = {}, const char* unit = "",
                    const char* meaning = "", bool is_required = false) {
        using json::written;
        const std::string standard = is_required ? "required" : written(value).dump();
        const bool is_plain = standard != "null" && standard.find('{') == std::string::npos;
        const bool has_limits = bounds.high < Bounds{}.high;
        rows += fmt::format("| `{}` | {} | {} | {} | {} |\n", name, is_plain ? standard : "", unit,
                            has_limits ? number_text(bounds.low) + " to " + number_text(bounds.high) : "", meaning);
    }
};

template <class Object>
std::string reference_rows(const std::string& heading) {
    Object standard{};
    ReferenceRows rows{"| **" + heading + "** | | | | |\n"};
    fields(rows, standard);
    return rows.rows;
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

static json::Source source_of(const std::string& file_name) {
    return {"Simulator", "item[", "] of file[" + file_name + "]"};
}

Scene parse_scene(std::string_view text, const std::string& file_name) {
    const json::Source source = source_of(file_name);
    const Json document = json::parse_json(text, most_scene_bytes, source);
    Scene scene = default_scene();
    read(JsonItem(document, "", source), scene, {});
    return scene;
}

InstrumentState parse_state(std::string_view text, const std::string& file_name) {
    const json::Source source = source_of(file_name);
    const Json document = json::parse_json(text, most_state_bytes, source);
    StateFileContent content;
    read(JsonItem(document, "", source), content, {});
    return content;
}

std::string state_text(const InstrumentState& state) {
    StateFileContent content{state};
    Json object = Json::object();
    object.merge_patch(json::written(content));  // which leaves out what is null
    return object.dump(2) + "\n";
}

}  // namespace korvane::simulation
