#include <cmath>
#include <functional>

#include "instrument/simulator/isotope_pattern.h"
#include "instrument/simulator/json_parts.h"
#include "instrument/simulator/json_reader.h"
#include "instrument/simulator/scene.h"
#include "instrument/simulator/setpoint_definitions.h"
#include "korvane/error.h"

namespace korvane::simulation {

namespace {

constexpr std::int64_t most_spectra = std::int64_t{1} << 40;
constexpr double huge = 1e12;
constexpr double most_samples = 2e8;

// Runs `read` on the object under `key` where it is given, then refuses the keys that it did not ask for.
void section(JsonReader& parent, const char* key, const std::function<void(JsonReader&)>& read) {
    if (auto reader = parent.member(key)) {
        read(*reader);
        reader->finish();
    }
}

template <class Element>
void read_list(JsonReader& parent, const char* key, std::size_t most_elements, std::vector<Element>& target,
               const std::function<Element(JsonReader&)>& read) {
    const auto list = parent.member(key);
    if (!list) return;
    target.clear();
    for (JsonReader& reader : list->as_array(most_elements)) {
        target.push_back(read(reader));
    }
}

template <std::size_t count>
void read_numbers(JsonReader& parent, const char* key, std::array<double, count>& target, double low, double high) {
    const auto list = parent.member(key);
    if (!list) return;
    const auto values = list->as_array(count);
    if (values.size() != count) list->refuse("must have " + std::to_string(count) + " elements");
    for (std::size_t i = 0; i < count; ++i) target[i] = values[i].as_number(low, high);
}

template <class Value>
Value read_choice(const JsonReader& reader, const std::vector<std::pair<const char*, Value>>& choices) {
    const std::string text = reader.as_text();
    std::string names;
    for (const auto& [name, value] : choices) {
        if (text == name) return value;
        names += names.empty() ? name : std::string(", ") + name;
    }
    reader.refuse("value[" + text + "] is none of " + names);
}

std::int32_t read_setpoint_index(JsonReader& parent) {
    const JsonReader reader = parent.required("setpoint");
    const std::string name = reader.as_text();
    const SetpointDefinition* definition = find_setpoint(name);
    if (!definition) reader.refuse("unknown setpoint[" + name + "]");
    return definition->index;
}

void read_instrument(JsonReader& reader, InstrumentSetup& setup) {
    reader.read("model", setup.model);
    reader.read("title", setup.title);
    reader.read("flight_tube_160cm", setup.flight_tube_160cm);
    reader.read("digitizer_4ghz", setup.digitizer_4ghz);
    reader.read("dual_source", setup.dual_source);
    reader.read("positive_post_acceleration", setup.positive_post_acceleration);
    reader.read("abundance_reduction", setup.abundance_reduction, -32768, 32767);
    reader.read("transients_per_second", setup.transients_per_second, 1, 1e6);
    reader.read("spectrum_period_ms", setup.spectrum_period_ms, 0, 3600000);
    reader.read("spectrum_start_ns", setup.spectrum_start_ns, 0, 1e9);
    reader.read("spectrum_duration_ns", setup.spectrum_duration_ns, 10, most_samples / 4);
    reader.read("random_phase", setup.random_phase);
}

void read_flight(JsonReader& reader, FlightSetup& setup) {
    if (const auto law = reader.member("law")) setup.law = read_calibration(*law, setup.law);
    read_list<std::int32_t>(reader, "use_flags", 32, setup.use_flags,
                            [](JsonReader& element) { return static_cast<std::int32_t>(element.as_integer(0, 1)); });
    const std::array<const char*, 2> keys{"lent_positive", "lent_negative"};
    for (std::size_t polarity = 0; polarity < keys.size(); ++polarity)
        if (const auto lent = reader.member(keys[polarity])) setup.lent[polarity] = read_calibration(*lent, setup.law);
    reader.read("mass_drift_ppm_per_minute", setup.mass_drift_ppm_per_minute, -1000, 1000);
}

void read_peak_shape(JsonReader& reader, PeakShapeSetup& setup) {
    reader.read("resolution_limit", setup.resolution_limit, 100, 1e7);
    reader.read("detector_width_ns", setup.detector_width_ns, 0.01, 1000);
    reader.read("tail_fraction", setup.tail_fraction, 0, 1);
    reader.read("tail_length_sigmas", setup.tail_length_sigmas, 0.1, 5);
    reader.read("reference_sigmas", setup.reference_sigmas, -5, 5);
    reader.read("high_resolution_factor", setup.high_resolution_factor, 0.01, 100);
    reader.read("high_resolution_transmission", setup.high_resolution_transmission, 0, 1);
}

void read_detector(JsonReader& reader, DetectorSetup& setup) {
    if (const auto statistics = reader.member("statistics"))
        setup.statistics = read_choice<DetectorStatistics>(
            *statistics, {{"counting", DetectorStatistics::counting}, {"pulse", DetectorStatistics::pulse}});
    read_numbers(reader, "counts_per_ion", setup.counts_per_ion, 0.01, 10000);
    reader.read("pulse_height_spread", setup.pulse_height_spread, 0, 2);
    reader.read("noise_counts", setup.noise_counts, 0, 100);
    reader.read("baseline_counts", setup.baseline_counts, 0, 255);
    reader.read("baseline_drift", setup.baseline_drift, 0, 1);
    reader.read("baseline_drift_waves", setup.baseline_drift_waves, 0, 100);
    reader.read("preamp_offset_counts", setup.preamp_offset_counts, 0, 10);
    read_numbers(reader, "gain_mode_factors", setup.gain_mode_factors, 0.001, 1000);
    read_list<double>(reader, "dead_masses", 1000, setup.dead_masses,
                      [](JsonReader& element) { return element.as_number(1e-3, 1e7); });
    reader.read("dead_half_width_sigmas", setup.dead_half_width_sigmas, 0, 1000);
}

SceneIon read_ion(JsonReader& reader) {
    SceneIon ion;
    reader.read("formula", ion.formula);
    if (const auto mz = reader.member("mz")) ion.mz = mz->as_number(1e-3, 1e7);
    if (ion.formula.empty() == !ion.mz.has_value()) reader.refuse("must have either a formula or an m/z");
    reader.read("charge", ion.charge, -100, 100);
    if (ion.charge == 0) reader.refuse("charge must not be 0");
    ion.ions = reader.required("ions").as_number(0, 1e7);
    reader.read("calibrant", ion.calibrant);
    reader.finish();
    if (ion.mz) return ion;
    try {
        parse_formula(ion.formula);
    } catch (const Error& fault) {
        reader.refuse(fault.description());
    }
    return ion;
}

void read_sample(JsonReader& reader, SampleSetup& setup) {
    reader.read("reference_transients", setup.reference_transients, 1, 50000);
    read_list<SceneIon>(reader, "ions", 10000, setup.ions, read_ion);
    reader.read("calibrant_factor", setup.calibrant_factor, 0, 1);
    reader.read("least_isotope_fraction", setup.least_isotope_fraction, 1e-6, 1);
}

void read_background(JsonReader& reader, BackgroundSetup& setup) {
    reader.read("count", setup.count, 0, 100000);
    reader.read("least_ions", setup.least_ions, 1e-3, 1e7);
    reader.read("most_ions", setup.most_ions, setup.least_ions, 1e7);
    reader.read("least_mz", setup.least_mz, 1, 1e7);
    reader.read("most_mz", setup.most_mz, setup.least_mz, 1e7);
    reader.read("separation_sigmas", setup.separation_sigmas, 0, 1000);
}

SlicerPositionSetup read_slicer_position(JsonReader& reader) {
    SlicerPositionSetup position;
    reader.read("hours", position.hours, 0, most_slicer_hours);
    reader.read("high_resolution", position.high_resolution);
    reader.finish();
    return position;
}

ResponseCurve read_response(JsonReader& reader) {
    using enum ResponseShape;
    ResponseCurve curve;
    curve.setpoint = read_setpoint_index(reader);
    curve.acts_on = read_choice<ResponseTarget>(
        reader.required("acts_on"),
        {{"ions", ResponseTarget::ions}, {"gain", ResponseTarget::gain}, {"resolution", ResponseTarget::resolution}});
    curve.shape = read_choice<ResponseShape>(reader.required("shape"), {{"rising", rising},
                                                                        {"falling", falling},
                                                                        {"optimum", optimum},
                                                                        {"power", power},
                                                                        {"low_mass_cutoff", low_mass_cutoff}});
    curve.midpoint = reader.required("midpoint").as_number(-huge, huge);
    const bool needs_positive_midpoint = curve.shape == power || curve.shape == low_mass_cutoff;
    if (needs_positive_midpoint && curve.midpoint <= 0.0) reader.refuse("midpoint must be above 0 for this shape");
    reader.read("width", curve.width, 1e-6, huge);
    reader.read("exponent", curve.exponent, 0.01, 100);
    reader.read("mass_exponent", curve.mass_exponent, -10, 10);
    read_list<std::int32_t>(reader, "sources", 12, curve.sources,
                            [](JsonReader& element) { return static_cast<std::int32_t>(element.as_integer(0, 11)); });
    if (const auto polarity = reader.member("polarity"))
        curve.polarity = read_choice<std::int32_t>(*polarity, {{"positive", 0}, {"negative", 1}});
    reader.finish();
    if (!(curve.raw(find_setpoint(curve.setpoint)->default_value, 1000.0) >= least_default_response))
        reader.refuse("gives next to nothing at the setpoint's default value");
    return curve;
}

SpectrumRange read_range(JsonReader& parent, const char* key) {
    SpectrumRange range;
    section(parent, key, [&range](JsonReader& reader) {
        reader.read("first", range.first, 0, most_spectra);
        reader.read("count", range.count, 0, most_spectra);
    });
    return range;
}

SetpointFault read_setpoint_fault(JsonReader& reader) {
    SetpointFault fault;
    fault.index = read_setpoint_index(reader);
    if (const auto after = reader.member("after_spectra")) fault.after_spectra = after->as_integer(0, most_spectra);
    bool never = false;
    reader.read("never", never);
    if (never == fault.after_spectra.has_value()) reader.refuse("must have either after_spectra or never");
    reader.finish();
    return fault;
}

void read_faults(JsonReader& reader, FaultSetup& setup) {
    setup.empty_spectra = read_range(reader, "empty_spectra");
    setup.late_spectra = read_range(reader, "late_spectra");
    setup.wrong_polarity = read_range(reader, "wrong_polarity");
    reader.read("late_milliseconds", setup.late_milliseconds, 0, 3600000);
    reader.read("not_ready_polls", setup.not_ready_polls, -1, most_spectra);
    reader.read("run_state_polls", setup.run_state_polls, 0, most_spectra);
    read_list<SetpointFault>(reader, "setpoints", 100, setup.setpoints, read_setpoint_fault);
}

}  // namespace

Scene parse_scene(std::string_view text, const std::string& file_name) {
    const JsonDocument document(text, most_scene_bytes, file_name);
    JsonReader root = document.root();
    Scene scene = default_scene();
    root.read("description", scene.description);
    section(root, "instrument", [&](JsonReader& reader) { read_instrument(reader, scene.instrument); });
    section(root, "flight", [&](JsonReader& reader) { read_flight(reader, scene.flight); });
    section(root, "peak_shape", [&](JsonReader& reader) { read_peak_shape(reader, scene.peak_shape); });
    section(root, "detector", [&](JsonReader& reader) { read_detector(reader, scene.detector); });
    section(root, "sample", [&](JsonReader& reader) { read_sample(reader, scene.sample); });
    section(root, "background", [&](JsonReader& reader) { read_background(reader, scene.background); });
    if (const auto slicer = root.member("slicer");
        slicer && slicer->as_array(slicer_position_count).size() != slicer_position_count)
        slicer->refuse("must have " + std::to_string(slicer_position_count) + " positions");
    read_list<SlicerPositionSetup>(root, "slicer", slicer_position_count, scene.slicer, read_slicer_position);
    if (auto setpoints = root.member("setpoints")) scene.setpoints = read_setpoint_values(*setpoints);
    read_list<ResponseCurve>(root, "responses", 200, scene.responses, read_response);
    section(root, "faults", [&](JsonReader& reader) { read_faults(reader, scene.faults); });
    root.finish();
    return scene;
}

}  // namespace korvane::simulation
