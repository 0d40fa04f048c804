// The text of a recipe.
#pragma once

#include <nlohmann/json.hpp>

#include "korvane/tune_run.h"

namespace korvane {

/// Error -904 naming the value that is not of its type, or a key that is none.
TuneRecipe recipe_from_json(const nlohmann::json& json);

}  // namespace korvane
