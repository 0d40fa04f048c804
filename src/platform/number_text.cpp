#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr int smallest_plain_exponent = -5;
constexpr int largest_plain_exponent = 15;

/// Shortest digits of a number: value = 0.d1 d2 d3... x 10^(exponent + 1).
struct ShortestDigits {
    bool negative = false;
    std::array<char, 24> digits{};
    int count = 0;
    int exponent = 0;
};

template <class Number>
ShortestDigits shortest_digits(Number value) {
    std::array<char, 40> text;
    const auto written = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::scientific);
    ShortestDigits result;
    const char* at = text.data();
    if (*at == '-') {
        result.negative = true;
        ++at;
    }
    for (; *at != 'e'; ++at)
        if (*at != '.') result.digits[static_cast<std::size_t>(result.count++)] = *at;
    at += at[1] == '+' ? 2 : 1;
    std::from_chars(at, written.ptr, result.exponent);
    return result;
}

void append_plain(std::string& out, const ShortestDigits& number) {
    const char* const digits = number.digits.data();
    const auto count = static_cast<std::size_t>(number.count);
    if (number.exponent < 0) {
        out += "0.";
        out.append(static_cast<std::size_t>(-number.exponent - 1), '0');
        out.append(digits, count);
        return;
    }
    const std::size_t whole = static_cast<std::size_t>(number.exponent) + 1;
    if (count <= whole) {
        out.append(digits, count).append(whole - count, '0');
        return;
    }
    out.append(digits, whole).append(1, '.').append(digits + whole, count - whole);
}

void append_scientific(std::string& out, const ShortestDigits& number) {
    out += number.digits[0];
    if (number.count > 1)
        out.append(1, '.').append(number.digits.data() + 1, static_cast<std::size_t>(number.count) - 1);
    const int magnitude = std::abs(number.exponent);
    out += number.exponent < 0 ? "E-" : "E+";
    if (magnitude < 10) out += '0';
    out += std::to_string(magnitude);
}

template <class Number>
void append_shortest(std::string& out, Number value) {
    if (value == 0) {
        out += '0';
        return;
    }
    if (!std::isfinite(value)) {
        const char* const magnitude = std::isinf(value) ? "1.#INF" : "1.#QNAN";
        if (std::signbit(value)) out += '-';
        out += magnitude;
        return;
    }
    const ShortestDigits number = shortest_digits(value);
    if (number.negative) out += '-';
    const bool plain = number.exponent >= smallest_plain_exponent && number.exponent <= largest_plain_exponent;
    plain ? append_plain(out, number) : append_scientific(out, number);
}

std::string_view without_blanks(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The text with the current locale's decimal separator turned into a point; false where it holds a point already.
bool with_point(std::string_view text, std::string& out) {
    const std::string separator = decimal_separator();
    const bool is_point = separator == "." || separator.empty();
    if (!is_point && text.find('.') != std::string_view::npos) return false;
    const std::size_t at = is_point ? std::string_view::npos : text.find(separator);
    out = text.substr(0, at);
    if (at != std::string_view::npos) out.append(1, '.').append(text.substr(at + separator.size()));
    return true;
}

/// Whether digits that a double cannot hold are too large rather than too small.
bool is_huge(std::string_view digits) {
    const std::size_t exponent_mark = std::min(digits.find_first_of("eE"), digits.size());
    const std::string_view mantissa = digits.substr(0, exponent_mark);
    const auto point = static_cast<long long>(std::min(mantissa.find('.'), mantissa.size()));
    const auto leading = static_cast<long long>(mantissa.find_first_not_of("0."));
    std::string_view exponent_text = digits.substr(std::min(exponent_mark + 1, digits.size()));
    if (exponent_text.starts_with('+')) exponent_text.remove_prefix(1);
    long long exponent = 0;
    const auto parsed = std::from_chars(exponent_text.data(), exponent_text.data() + exponent_text.size(), exponent);
    if (parsed.ec == std::errc::result_out_of_range) return !exponent_text.starts_with('-');
    return point - leading + exponent > 0;
}

}  // namespace

std::string number_text(double value) {
    std::string text;
    append_shortest(text, value);
    return text;
}

std::string number_text(float value) {
    std::string text;
    append_shortest(text, value);
    return text;
}

std::string number_text(const InstrumentValue& value) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return number_text(*integer);
    if (const auto* number = std::get_if<double>(&value)) return number_text(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return {};
}

void append_number(std::string& out, double value) {
    append_shortest(out, value);
}

double parse_double(std::string_view text) {
    const auto mismatch = [&] { raise_runtime_fault(error_number::type_mismatch, "[" + std::string(text) + "]"); };
    std::string digits;
    if (!with_point(without_blanks(text), digits)) mismatch();
    const bool negative = !digits.empty() && digits.front() == '-';
    if (negative || (!digits.empty() && digits.front() == '+')) digits.erase(0, 1);
    // What from_chars would take besides: a second sign and the names of the values that are no numbers.
    if (digits.empty() || (digits.front() != '.' && (digits.front() < '0' || digits.front() > '9'))) mismatch();
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::invalid_argument || end != digits.data() + digits.size()) mismatch();
    if (error == std::errc::result_out_of_range) {
        if (is_huge(digits)) raise_runtime_fault(error_number::overflow, "[" + std::string(text) + "]");
        value = 0;
    }
    return negative ? -value : value;
}

}  // namespace korvane
