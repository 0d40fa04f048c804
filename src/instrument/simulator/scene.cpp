// The items of scenes and state files: tables from which they are read, checked, written and documented.
#include "instrument/simulator/scene.h"

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
        const bool whole = definition->type != contract::variable_type.real;
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

}  // namespace

}  // namespace simulation

namespace embedded {

template <class Io>
void fields(Io& io, CalibrationContent& part) {
    io("coefficients", simulation::CoefficientList{part.coefficients});
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
    io("model", part.model);
    io("title", part.title);
    io("flight_tube_160cm", part.flight_tube_160cm);
    io("digitizer_4ghz", part.digitizer_4ghz);
    io("dual_source", part.dual_source);
    io("positive_post_acceleration", part.positive_post_acceleration);
    io("abundance_reduction", part.abundance_reduction, {-32768, 32767});
    io("transients_per_second", part.transients_per_second, {1, 1e6});
    io("spectrum_period_ms", part.spectrum_period_ms, {0, 3600000});
    io("spectrum_start_ns", part.spectrum_start_ns, {0, 1e9});
    io("spectrum_duration_ns", part.spectrum_duration_ns, {10, most_duration_ns});
    io("random_phase", part.random_phase);
}

template <class Io>
void fields(Io& io, FlightSetup& part) {
    io("law", part.law);
    io("use_flags", part.use_flags, {0, 1, 32});
    io("mass_drift_ppm_per_minute", part.mass_drift_ppm_per_minute, {-1000, 1000});
}

template <class Io>
void fields(Io& io, PeakShapeSetup& part) {
    io("resolution_limit", part.resolution_limit, {100, 1e7});
    io("detector_width_ns", part.detector_width_ns, {0.01, 1000});
    io("tail_fraction", part.tail_fraction, {0, 1});
    io("tail_length_sigmas", part.tail_length_sigmas, {0.1, 5});
    io("reference_sigmas", part.reference_sigmas, {-5, 5});
    io("high_resolution_factor", part.high_resolution_factor, {0.01, 100});
    io("high_resolution_transmission", part.high_resolution_transmission, {0, 1});
}

template <class Io>
void fields(Io& io, DetectorSetup& part) {
    io("statistics", part.statistics);
    io("counts_per_ion", part.counts_per_ion, {0.01, 10000});
    io("pulse_height_spread", part.pulse_height_spread, {0, 2});
    io("noise_counts", part.noise_counts, {0, 100});
    io("baseline_counts", part.baseline_counts, {0, 255});
    io("baseline_drift", part.baseline_drift, {0, 1});
    io("baseline_drift_waves", part.baseline_drift_waves, {0, 100});
    io("preamp_offset_counts", part.preamp_offset_counts, {0, 10});
    io("gain_mode_factors", part.gain_mode_factors, {0.001, 1000});
    io("dead_masses", part.dead_masses, {1e-3, most_mz, 1000});
    io("dead_half_width_sigmas", part.dead_half_width_sigmas, {0, 1000});
}

template <class Io>
void fields(Io& io, SceneIon& part) {
    io("formula", part.formula);
    io("mz", part.mz, {1e-3, most_mz});
    io("charge", part.charge, {-100, 100});
    io("ions", part.ions, {0, most_ions_of_peak}, true);
    io("calibrant", part.calibrant);
}

template <class Io>
void fields(Io& io, SampleSetup& part) {
    io("reference_transients", part.reference_transients, {1, 50000});
    io("ions", part.ions, {.most_elements = 10000});
    io("calibrant_factor", part.calibrant_factor, {0, 1});
    io("least_isotope_fraction", part.least_isotope_fraction, {1e-6, 1});
}

template <class Io>
void fields(Io& io, BackgroundSetup& part) {
    io("count", part.count, {0, 100000});
    io("least_ions", part.least_ions, {1e-3, most_ions_of_peak});
    io("most_ions", part.most_ions, {1e-3, most_ions_of_peak});
    io("least_mz", part.least_mz, {1, most_mz});
    io("most_mz", part.most_mz, {1, most_mz});
    io("separation_sigmas", part.separation_sigmas, {0, 1000});
}

template <class Io>
void fields(Io& io, SlicerPositionSetup& part) {
    io("hours", part.hours, {0, most_slicer_hours});
    io("high_resolution", part.high_resolution);
}

template <class Io>
void fields(Io& io, ResponseCurve& part) {
    io("setpoint", InternalName{part.setpoint}, {}, true);
    io("acts_on", part.acts_on, {}, true);
    io("shape", part.shape, {}, true);
    io("midpoint", part.midpoint, {-huge, huge}, true);
    io("width", part.width, {1e-6, huge});
    io("exponent", part.exponent, {0.01, 100});
    io("mass_exponent", part.mass_exponent, {-10, 10});
    io("sources", part.sources, {0, 11, 12});
    io("polarity", part.polarity);
}

template <class Io>
void fields(Io& io, SpectrumRange& part) {
    io("first", part.first, {0, most_spectra});
    io("count", part.count, {0, most_spectra});
}

template <class Io>
void fields(Io& io, SetpointFault& part) {
    io("setpoint", InternalName{part.setpoint}, {}, true);
    io("after_spectra", part.after_spectra, {0, most_spectra});
    io("never", part.never);
}

template <class Io>
void fields(Io& io, FaultSetup& part) {
    io("empty_spectra", part.empty_spectra);
    io("late_spectra", part.late_spectra);
    io("wrong_polarity", part.wrong_polarity);
    io("late_milliseconds", part.late_milliseconds, {0, 3600000});
    io("not_ready_polls", part.not_ready_polls, {-1, most_spectra});
    io("run_state_polls", part.run_state_polls, {0, most_spectra});
    io("setpoints", part.setpoints, {.most_elements = 100});
}

template <class Io>
void fields(Io& io, Scene& part) {
    io("description", part.description);
    io("instrument", part.instrument);
    io("flight", part.flight);
    io("peak_shape", part.peak_shape);
    io("detector", part.detector);
    io("sample", part.sample);
    io("background", part.background);
    io("slicer", part.slicer);
    io("setpoints", ValuesByInternalName{part.setpoints});
    io("responses", part.responses, {.most_elements = 200});
    io("faults", part.faults);
}

template <class Io>
void fields(Io& io, InstrumentState::Calibrations& part) {
    io("positive", part.positive);
    io("negative", part.negative);
}

template <class Io>
void fields(Io& io, StateFileContent& part) {
    io("format", part.format, {}, true);
    io("version", part.version, {1, 1}, true);
    io("setpoints", ValuesByInternalName{part.setpoints});
    io("calibrations", part.calibrations);
    io("slicer_hours", part.slicer_hours, {0, most_slicer_hours});
}

/// What a file makes of the content that there is without it.
template <class Content>
Content changed(Content content, std::string_view text, std::size_t most_bytes, const std::string& file_name) {
    const json::Source source{"Simulator", "item[", "] of file[" + file_name + "]"};
    const Json document = json::parse_json(text, most_bytes, source);
    read(JsonItem(document, "", source), content, {});
    return content;
}

const Scene& default_scene() {
    static const Scene scene = changed(Scene(), scene_files().front().bytes, most_scene_bytes, "default scene");
    return scene;
}

Scene parse_scene(std::string_view text, const std::string& file_name) {
    return changed(default_scene(), text, most_scene_bytes, file_name);
}

InstrumentState parse_state(std::string_view text, const std::string& file_name) {
    return changed(StateFileContent(), text, most_state_bytes, file_name);
}

std::string state_text(const InstrumentState& state) {
    StateFileContent content{state};
    return json::written(content).dump(2) + "\n";
}

}  // namespace korvane::simulation
