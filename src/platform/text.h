// Texts put together from pieces: strings as they are, numbers in their shortest text, booleans as "True" and "False".
#pragma once

#include <algorithm>
#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

template <class Piece>
void append_piece(std::string& out, const Piece& piece) {
    if constexpr (std::is_same_v<Piece, bool>) {
        out += piece ? "True" : "False";
    } else if constexpr (std::is_same_v<Piece, char>) {
        out += piece;
    } else if constexpr (std::integral<Piece>) {
        char digits[24];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, piece).ptr);
    } else if constexpr (std::is_same_v<Piece, double>) {
        append_number(out, piece);
    } else if constexpr (std::is_same_v<Piece, float> || std::is_same_v<Piece, InstrumentValue>) {
        out += number_text(piece);
    } else {
        out += std::string_view(piece);
    }
}

template <class... Pieces>
void append_text(std::string& out, const Pieces&... pieces) {
    (append_piece(out, pieces), ...);
}

template <class... Pieces>
std::string text_of(const Pieces&... pieces) {
    std::string out;
    append_text(out, pieces...);
    return out;
}

/// `raise_runtime_fault` of a detail put together.
template <class... Pieces>
[[noreturn]] void raise_runtime_fault(std::int32_t number, const Pieces&... detail) {
    raise_runtime_fault(number, text_of(detail...));
}

/// Without the blanks at either end.
inline std::string_view trimmed(std::string_view text, std::string_view blanks = " \t\r\n") {
    const std::size_t first = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// The text with its control characters as "\\x0A", so that what comes from outside forges no line of a log.
inline std::string one_line(std::string text) {
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (std::ranges::none_of(text, is_control)) return text;
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string line;
    for (const char c : text)
        if (is_control(c))
            append_text(line, "\\x", digits[static_cast<unsigned char>(c) / 16], digits[c % 16]);
        else
            line += c;
    return line;
}

/// Letters of ASCII; all else as it is.
template <class Character>
constexpr Character lower_case(Character letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<Character>(letter - 'A' + 'a') : letter;
}

/// Whether the texts are the same but for the case of ASCII letters.
inline bool equal_but_for_case(std::string_view left, std::string_view right) noexcept {
    return std::ranges::equal(left, right, {}, lower_case<char>, lower_case<char>);
}

}  // namespace korvane
