#include "instrument/simulator/json_parts.h"

#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace korvane::simulation {

namespace {

constexpr std::int64_t least_int32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t most_int32 = std::numeric_limits<std::int32_t>::max();

std::array<double*, 8> coefficient_slots(CalibrationCoefficients& record) {
    return {&record.A, &record.B, &record.C, &record.D, &record.E, &record.F, &record.G, &record.H};
}

}  // namespace

CalibrationContent read_calibration(JsonReader reader, const CalibrationContent& start) {
    CalibrationContent content = start;
    if (const auto coefficients = reader.member("coefficients")) {
        const auto values = coefficients->as_array(8);
        if (values.size() < 2) coefficients->refuse("must have at least A and B");
        content.coefficients = {};
        for (std::size_t i = 0; i < values.size(); ++i)
            *coefficient_slots(content.coefficients)[i] = values[i].as_number();
        if (!(content.coefficients.A > 0.0)) values[0].refuse("must be above 0");
    }
    if (auto settings = reader.member("settings")) {
        settings->read("CalReserved1", content.settings.CalReserved1, least_int32, most_int32);
        settings->read("CalTraditionalWeighting", content.settings.CalTraditionalWeighting, least_int32, most_int32);
        settings->read("CalPolynomialWeighting", content.settings.CalPolynomialWeighting, least_int32, most_int32);
        settings->finish();
    }
    reader.finish();
    return content;
}

double read_setpoint_value(const JsonReader& reader, const SetpointDefinition& definition) {
    const double number = reader.as_number(definition.lower_limit, definition.upper_limit);
    if (definition.type != SetpointType::real && number != std::floor(number)) reader.refuse("must be a whole number");
    return number;
}

std::map<std::string, double> read_setpoint_values(JsonReader& reader) {
    std::map<std::string, double> values;
    for (const auto& [name, value] : reader.members()) {
        const SetpointDefinition* definition = find_setpoint(name);
        if (!definition) value.refuse("unknown setpoint");
        values[name] = read_setpoint_value(value, *definition);
    }
    return values;
}

nlohmann::json calibration_to_json(const CalibrationContent& content) {
    auto record = content.coefficients;
    nlohmann::json coefficients = nlohmann::json::array();
    for (const double* value : coefficient_slots(record)) coefficients.push_back(*value);
    return {{"coefficients", coefficients},
            {"settings",
             {{"CalReserved1", content.settings.CalReserved1},
              {"CalTraditionalWeighting", content.settings.CalTraditionalWeighting},
              {"CalPolynomialWeighting", content.settings.CalPolynomialWeighting}}}};
}

}  // namespace korvane::simulation
