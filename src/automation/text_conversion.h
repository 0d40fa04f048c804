// Texts of truth values, dates and local numbers, as automation converts them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "korvane/automation_value.h"

namespace korvane::automation {

/// "True" and "False" in any case, blanks around allowed; nothing for any other text.
std::optional<bool> truth_of_text(std::string_view text);

/// A number's text with the current locale's decimal separator in the place of the point.
std::string localised(std::string number);

/// The system's general date format. Error 13 for a date outside the years 100 to 9999.
std::string text_of_date(Date date);

}  // namespace korvane::automation
