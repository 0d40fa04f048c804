#include "automation/text_conversion.h"

#include <chrono>
#include <cmath>

#include "platform/automation_arithmetic.h"
#include "platform/text.h"

namespace korvane::automation {

namespace {

constexpr double first_day = -657434;  // 1 January 100
constexpr double day_after_last = 2958466;
constexpr int seconds_a_day = 86400;

}  // namespace

std::optional<bool> truth_of_text(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    if (equal_but_for_case(text, "True")) return true;
    if (equal_but_for_case(text, "False")) return false;
    return std::nullopt;
}

std::string localised(std::string number) {
    const auto point = number.find('.');
    if (point != std::string::npos && number.find('#') == std::string::npos)
        number.replace(point, 1, decimal_separator());
    return number;
}

std::string text_of_date(Date date) {
    if (!(date.days >= first_day && date.days < day_after_last))
        raise_runtime_fault(error_number::type_mismatch, number_text(date.days) + " is no date");
    // The fraction counts forward from midnight, for days before the first one too.
    double day = std::trunc(date.days);
    auto second = static_cast<int>(std::lround(std::fabs(date.days - day) * seconds_a_day));
    if (second == seconds_a_day) {
        day += 1;
        second = 0;
    }
    using namespace std::chrono;
    const year_month_day calendar(sys_days(year(1899) / December / 30) + days(static_cast<int>(day)));
    return general_date_text(
        {static_cast<int>(calendar.year()), static_cast<int>(static_cast<unsigned>(calendar.month())),
         static_cast<int>(static_cast<unsigned>(calendar.day())), second / 3600, second / 60 % 60, second % 60});
}

}  // namespace korvane::automation
