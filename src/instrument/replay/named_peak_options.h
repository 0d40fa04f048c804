// The options of the peak finder by name, as recordings keep them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "korvane/embedded_parts.h"

namespace korvane::replay {

/// Name and value of every option that is set.
std::vector<std::pair<const char*, double>> named_peak_options(const PeakFinderOptions& options);

/// The options out of the values that `value_of` has for their names. Nothing where one half of the width is missing.
std::optional<PeakFinderOptions> peak_finder_options(const std::function<std::optional<double>(const char*)>& value_of);

/// The user parameter that holds an option.
inline std::string peak_finder_parameter(const char* option) {
    return std::string("peak finder: ") + option;
}

}  // namespace korvane::replay
