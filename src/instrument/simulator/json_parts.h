// Parts that the simulator's files have in common: a calibration and a setpoint value.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "instrument/simulator/json_reader.h"
#include "instrument/simulator/scene.h"
#include "instrument/simulator/setpoint_definitions.h"

namespace korvane::simulation {

/// Reads {"coefficients": [A, B, ...], "settings": {...}}; A must not be 0. Missing parts keep what `start` says.
CalibrationContent read_calibration(JsonReader reader, const CalibrationContent& start);
nlohmann::json calibration_to_json(const CalibrationContent& content);
/// A value within the setpoint's limits, whole where the setpoint is an integer.
double read_setpoint_value(const JsonReader& reader, const SetpointDefinition& definition);
/// An object of setpoint values by internal name.
std::map<std::string, double> read_setpoint_values(JsonReader& reader);

}  // namespace korvane::simulation
