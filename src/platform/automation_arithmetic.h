// Numbers, texts and dates by the rules of automation: halves to even, overflow is an error, shortest texts.
#pragma once

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "korvane/records.h"
#include "korvane/system.h"

namespace korvane {

/// The nearest whole number, halves to the even one, in every rounding mode: the remainder and the difference are
/// exact.
inline double nearest_even(double value) {
    return value - std::remainder(value, 1.0);
}

/// For its life the thread rounds to nearest, halves to even, and no floating-point exception traps.
class StandardRounding {
public:
    StandardRounding() {
        std::feholdexcept(&before_);
        std::fesetround(FE_TONEAREST);
    }
    ~StandardRounding() { std::fesetenv(&before_); }
    StandardRounding(const StandardRounding&) = delete;
    StandardRounding& operator=(const StandardRounding&) = delete;

private:
    std::fenv_t before_;
};

/// Nearest integer, halves to the even one; error 6 naming the value out of range or not a number. Independent of the
/// thread's rounding mode. `located` (frame/routine.h) names the item besides.
std::int32_t to_int32(double value);
std::int16_t to_int16(double value);

/// Numbers out of instrument values; a text is converted by the rules of the current locale. Error 13 where there is
/// no number.
double to_double(const InstrumentValue& value);
std::int32_t to_int32(const InstrumentValue& value);
std::int16_t to_int16(const InstrumentValue& value);

/// The current locale's, the user's on Windows.
std::string decimal_separator();

/// Text to number by the current locale's rules: blanks around, a sign, the locale's decimal separator, an exponent.
/// Error 13 naming the text for anything else (grouping separators included: a wrong number is worse than an error),
/// 6 where it exceeds a double.
double parse_double(std::string_view text);

/// Shortest text that reads back as the same number, independent of the locale, as automation prints it: plain decimals
/// for exponents -5 to 15 ("0.0001", "123456"), else "1E+20", "1.5E-07"; no "-0".
std::string number_text(double value);
std::string number_text(float value);
inline std::string number_text(std::int32_t value) {
    return std::to_string(value);
}
std::string number_text(const InstrumentValue& value);
/// Appends the same without a temporary.
void append_number(std::string& out, double value);

/// "20261121", "083015", "261121".
std::string date_yyyymmdd(const LocalTime& time);
std::string time_hhmmss(const LocalTime& time);
std::string date_yymmdd(const LocalTime& time);
/// The system's general date format; where the system has none, "11/21/2026 8:30:15 AM".
std::string general_date_text(const LocalTime& time);

}  // namespace korvane
