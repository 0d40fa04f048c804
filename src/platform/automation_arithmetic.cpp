#include "platform/automation_arithmetic.h"

#include <clocale>
#include <cmath>
#include <limits>

#include "korvane/error.h"
#include "platform/rounding.h"

namespace korvane {

namespace {

template <class Integer>
Integer to_integer(double value) {
    const double nearest = nearest_even(value);
    const bool fits = nearest >= static_cast<double>(std::numeric_limits<Integer>::min()) &&
                      nearest <= static_cast<double>(std::numeric_limits<Integer>::max());
    if (!fits) raise_runtime_fault(error_number::overflow, number_text(value));
    return static_cast<Integer>(nearest);
}

}  // namespace

std::int32_t to_int32(double value) {
    return to_integer<std::int32_t>(value);
}
std::int16_t to_int16(double value) {
    return to_integer<std::int16_t>(value);
}

double to_double(const InstrumentValue& value) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return *integer;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) return parse_double(*text);
    raise_runtime_fault(error_number::type_mismatch, "no value");
}

std::int32_t to_int32(const InstrumentValue& value) {
    return to_int32(to_double(value));
}
std::int16_t to_int16(const InstrumentValue& value) {
    return to_int16(to_double(value));
}

}  // namespace korvane
