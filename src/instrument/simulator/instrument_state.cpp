#include "instrument/simulator/instrument_state.h"

#include <nlohmann/json.hpp>

#include "instrument/simulator/json_parts.h"

namespace korvane::simulation {

namespace {

constexpr const char* format_name = "korvane simulator state";
constexpr std::int64_t format_version = 1;
constexpr std::array<const char*, 2> polarity_keys{"positive", "negative"};

void check_format(JsonReader& root) {
    const JsonReader format = root.required("format");
    if (format.as_text() != format_name) format.refuse(std::string("must be \"") + format_name + "\"");
    root.required("version").as_integer(format_version, format_version);
}

}  // namespace

InstrumentState parse_state(std::string_view text, const std::string& file_name) {
    const JsonDocument document(text, most_state_bytes, file_name);
    JsonReader root = document.root();
    InstrumentState state;
    check_format(root);
    if (auto setpoints = root.member("setpoints")) state.setpoints = read_setpoint_values(*setpoints);
    if (auto calibrations = root.member("calibrations")) {
        for (std::size_t polarity = 0; polarity < polarity_keys.size(); ++polarity)
            if (auto calibration = calibrations->member(polarity_keys[polarity])) {
                calibration->required("coefficients");
                state.calibrations[polarity] = read_calibration(*calibration, {});
            }
        calibrations->finish();
    }
    if (const auto hours = root.member("slicer_hours")) {
        state.slicer_hours.emplace();
        for (const JsonReader& value : hours->as_array(slicer_position_count))
            state.slicer_hours->push_back(value.as_number(0, most_slicer_hours));
        if (state.slicer_hours->size() != slicer_position_count)
            hours->refuse("must have " + std::to_string(slicer_position_count) + " elements");
    }
    root.finish();
    return state;
}

std::string state_text(const InstrumentState& state) {
    nlohmann::json calibrations = nlohmann::json::object();
    for (std::size_t polarity = 0; polarity < polarity_keys.size(); ++polarity)
        if (state.calibrations[polarity])
            calibrations[polarity_keys[polarity]] = calibration_to_json(*state.calibrations[polarity]);
    nlohmann::json root{{"format", format_name},
                        {"version", format_version},
                        {"setpoints", nlohmann::json(state.setpoints)},
                        {"calibrations", calibrations}};
    if (state.slicer_hours) root["slicer_hours"] = *state.slicer_hours;
    return root.dump(2) + "\n";
}

}  // namespace korvane::simulation
