// Recipes, held against the instrument before anything moves.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "korvane/error.h"
#include "korvane/tune_globals.h"
#include "tune/base_file.h"
#include "tune/recipe_json.h"

namespace korvane {

namespace {

[[noreturn]] void refuse_recipe(const std::string& place, const std::string& why) {
    throw Error(error_number::file_or_element, "read_tune_recipe", place + ": " + why);
}

void require_positive(const std::string& place, std::optional<double> number) {
    if (number && !(*number > 0)) refuse_recipe(place, fmt::format("{} is not above 0", *number));
}

void require_mass(const std::string& place, double mass, TuneGlobals& globals) {
    require_positive(place, mass);
    if (!globals.IsThisMassInCurrentMassRange(mass)) refuse_recipe(place, fmt::format("{} is out of range", mass));
}

void require_possible(const std::string& place, const RecipeSearch& search, TuneGlobals& globals,
                      SetpointTable& table) {
    const auto indexes = table.indexes();
    const auto index = std::ranges::find(indexes, search.setpoint,
                                         [&](std::int32_t candidate) { return table.internal_name(candidate); });
    if (index == indexes.end()) refuse_recipe(place + "/setpoint", "there is no setpoint " + search.setpoint);
    const double least = table.lower_limit(*index), most = table.upper_limit(*index);
    for (const auto& [key, bound] : {std::pair{"/min", search.min}, std::pair{"/max", search.max}})
        if (bound && !(*bound >= least && *bound <= most))
            refuse_recipe(place + key, fmt::format("{} lies outside the limits of {}, {} to {}", *bound,
                                                   search.setpoint, least, most));
    if (!(search.min.value_or(least) < search.max.value_or(most))) refuse_recipe(place + "/min", "not below max");
    require_mass(place + "/mz", search.mz, globals);
    require_positive(place + "/target", search.target);
    require_positive(place + "/tolerance_percent", search.tolerance_percent);
    require_positive(place + "/around_percent", search.around_percent);
    require_positive(place + "/resolution", search.resolution.value_or(table.resolution(*index)));
    const double present = number_of(table.value(*index, 0, 0), search.setpoint);
    const auto [low, high] = search_bounds(search, table, *index, present);
    if (!(low < high))
        refuse_recipe(place + "/around_percent", fmt::format("nothing lies around {} between the bounds", present));
}

}  // namespace

std::pair<double, double> search_bounds(const RecipeSearch& search, SetpointTable& table, std::int32_t index,
                                        double present) {
    const double low = search.min.value_or(table.lower_limit(index));
    const double high = search.max.value_or(table.upper_limit(index));
    if (!search.around_percent) return {low, high};
    const double reach = std::abs(present) * *search.around_percent / 100;
    return {std::max(low, present - reach), std::min(high, present + reach)};
}

TuneRecipe read_tune_recipe(const Platform& platform, const std::string& path) {
    BaseFile file(platform, "TuneRecipe.json", "read_tune_recipe");
    if (!path.empty()) file.path = path;
    const auto object = file.read();
    if (!object) file.refuse("there is no such file");
    TuneGlobals globals(platform);
    const auto instrument = open_globals(*platform.instrument);
    try {
        TuneRecipe recipe = recipe_from_json(*object);
        if (recipe.schema != 1) refuse_recipe("/schema", fmt::format("this program knows 1, not {}", recipe.schema));
        if (recipe.fit_spectra < 1 || recipe.fit_spectra > 10000) refuse_recipe("/fit_spectra", "not 1 to 10000");
        for (const double mass : recipe.masses) require_mass("/masses", mass, globals);
        for (std::size_t i = 0; i < recipe.searches.size(); ++i)
            require_possible(fmt::format("/adjust/{}", i), recipe.searches[i], globals, instrument->setpoints());
        return recipe;
    } catch (const Error& error) {
        if (error.number() != error_number::file_or_element) throw;
        file.refuse(error.description());
    }
}

}  // namespace korvane
