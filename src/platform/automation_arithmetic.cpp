#include "platform/automation_arithmetic.h"

#include <clocale>
#include <cmath>
#include <limits>

#include "korvane/error.h"

namespace korvane {

namespace {

/// Nearest whole number, halves to the even one. By comparisons of exact differences, because the hosts' own code may
/// have changed the rounding mode of the thread.
double nearest_even(double value) {
    const double below = std::floor(value);
    const double fraction = value - below;
    if (fraction < 0.5) return below;
    if (fraction > 0.5) return below + 1.0;
    return std::fmod(below, 2.0) == 0.0 ? below : below + 1.0;
}

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
