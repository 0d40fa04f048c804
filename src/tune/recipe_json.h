// The text of a recipe, and what it means for an instrument.
#pragma once

#include <nlohmann/json.hpp>
#include <utility>

#include "korvane/tune_run.h"

namespace korvane {

/// Error -904 naming the value that is not of its type, or a key that is none.
TuneRecipe recipe_from_json(const nlohmann::json& json);

/// Where a search looks: between its bounds, or those of the setpoint, and around the present value.
std::pair<double, double> search_bounds(const RecipeSearch& search, SetpointTable& table, std::int32_t index,
                                        double present);

}  // namespace korvane
