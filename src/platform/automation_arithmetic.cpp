#include "platform/automation_arithmetic.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <ctime>
#include <limits>
#include <locale>
#include <sstream>

#include "korvane/error.h"
#include "platform/text.h"
#include "platform/windows_text.h"
#ifdef _WIN32
#include <oleauto.h>
#endif

namespace korvane {

namespace {

template <class Integer>
Integer to_integer(double value) {
    const double nearest = nearest_even(value);
    const bool fits = nearest >= static_cast<double>(std::numeric_limits<Integer>::min()) &&
                      nearest <= static_cast<double>(std::numeric_limits<Integer>::max());
    if (!fits) raise_runtime_fault(error_number::overflow, "[", value, "]");
    return static_cast<Integer>(nearest);
}

/// Plain decimals stand for exponents -5 to 15.
constexpr double smallest_plain = 1e-5, beyond_plain = 1e16;

std::tm calendar_parts(const LocalTime& time) {
    std::tm parts{};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = -1;
    return parts;
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

std::string decimal_separator() {
#ifdef _WIN32
    // The user's own setting, which the C library of this module never heard of.
    wchar_t text[8] = L"";
    GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, text, 8);
    return utf8_from_utf16(text);
#else
    return std::localeconv()->decimal_point;
#endif
}

std::string number_text(double value) {
    std::string text;
    append_number(text, value);
    return text;
}

std::string number_text(float value) {
    if (!std::isfinite(value)) return number_text(static_cast<double>(value));
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::scientific).ptr;
    double same_text = 0;
    std::from_chars(text.data(), end, same_text);
    return number_text(same_text);
}

std::string number_text(const InstrumentValue& value) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return number_text(*integer);
    if (const auto* number = std::get_if<double>(&value)) return number_text(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return {};
}

void append_number(std::string& out, double value) {
    if (value == 0) {
        out += '0';
    } else if (!std::isfinite(value)) {
        append_text(out, std::signbit(value) ? "-" : "", std::isinf(value) ? "1.#INF" : "1.#QNAN");
    } else {
        std::array<char, 32> text;
        const bool plain = std::abs(value) >= smallest_plain && std::abs(value) < beyond_plain;
        const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
        char* const end = std::to_chars(text.data(), text.data() + text.size(), value, format).ptr;
        std::replace(text.data(), end, 'e', 'E');
        out.append(text.data(), end);
    }
}

double parse_double(std::string_view text) {
    const auto mismatch = [&] { raise_runtime_fault(error_number::type_mismatch, "[", text, "]"); };
    std::string digits(trimmed(text));
    if (const std::string separator = decimal_separator(); separator != "." && !separator.empty()) {
        if (digits.find('.') != std::string::npos) mismatch();
        if (const auto at = digits.find(separator); at != std::string::npos) digits.replace(at, separator.size(), ".");
    }
    const bool negative = !digits.empty() && digits.front() == '-';
    if (negative || (!digits.empty() && digits.front() == '+')) digits.erase(0, 1);
    // What from_chars would take besides: a second sign and the names of the values that are no numbers.
    if (digits.empty() || (digits.front() != '.' && (digits.front() < '0' || digits.front() > '9'))) mismatch();
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::invalid_argument || end != digits.data() + digits.size()) mismatch();
    if (error == std::errc::result_out_of_range) {
        // The stream tells what is too large, a failure, from what is too small.
        std::istringstream stream(digits);
        stream.imbue(std::locale::classic());
        if (!(stream >> value)) raise_runtime_fault(error_number::overflow, "[", text, "]");
    }
    return negative ? -value : value;
}

std::string utc_text(const LocalTime& time) {
    std::tm parts = calendar_parts(time);
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::mktime(&parts)));
}

std::string date_yyyymmdd(const LocalTime& time) {
    return fmt::format("{:04}{:02}{:02}", time.year, time.month, time.day);
}

std::string time_hhmmss(const LocalTime& time) {
    return fmt::format("{:02}{:02}{:02}", time.hour, time.minute, time.second);
}

std::string date_yymmdd(const LocalTime& time) {
    return fmt::format("{:02}{:02}{:02}", time.year % 100, time.month, time.day);
}

#ifdef _WIN32

std::string general_date_text(const LocalTime& time) {
    const auto word = [](int part) { return static_cast<WORD>(part); };
    SYSTEMTIME parts{word(time.year),   word(time.month),  0, word(time.day), word(time.hour),
                     word(time.minute), word(time.second), 0};
    DATE date = 0;
    BSTR text = nullptr;
    if (!SystemTimeToVariantTime(&parts, &date) || FAILED(VarBstrFromDate(date, LOCALE_USER_DEFAULT, 0, &text)))
        raise_runtime_fault(error_number::type_mismatch, date_yyyymmdd(time), " ", time_hhmmss(time));
    const std::string result = utf8_from_utf16(std::wstring_view(text, SysStringLen(text)));
    SysFreeString(text);
    return result;
}

#else

std::string general_date_text(const LocalTime& time) {
    // The general format leaves midnight out: it stands for a date without a time.
    const bool is_midnight = time.hour == 0 && time.minute == 0 && time.second == 0;
    const std::string_view locale = std::setlocale(LC_TIME, nullptr);
    if (locale != "POSIX" && locale != "C" && !locale.starts_with("C.")) {
        const std::tm parts = calendar_parts(time);
        char text[200];
        return {text, std::strftime(text, sizeof text, is_midnight ? "%x" : "%x %X", &parts)};
    }
    const std::string date = fmt::format("{}/{}/{}", time.month, time.day, time.year);
    if (is_midnight) return date;
    const int hour = time.hour % 12 == 0 ? 12 : time.hour % 12;
    return fmt::format("{} {}:{:02}:{:02} {}", date, hour, time.minute, time.second, time.hour < 12 ? "AM" : "PM");
}

#endif

}  // namespace korvane
