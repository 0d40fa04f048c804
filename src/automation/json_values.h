// Automation values as JSON and back.
#pragma once

#include <nlohmann/json.hpp>

#include "korvane/automation_value.h"

namespace korvane::automation {

using Json = nlohmann::ordered_json;

/// Numbers, texts and booleans as they are; Empty, Null, a missing argument and Nothing as null; numbers that JSON has
/// no form for as texts ("nan", "inf", "-inf"); dates as texts; records as objects of their fields; arrays of several
/// dimensions as arrays of arrays; objects as {"class": name} with their properties.
Json json_of(const Value& value);

/// Numbers without a fraction that fit become Long, others Double; null is Null. Equally long inner arrays make one
/// array of two dimensions. An object must be a record: all its names those of one record's fields; fields left out are
/// 0. Error 5 for any other object.
Value value_of_json(const Json& json);

}  // namespace korvane::automation
