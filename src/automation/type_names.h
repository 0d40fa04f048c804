// Names of types, member functions and enumerators as the compiler writes them (GCC and clang alike), so that no list
// repeats them.
#pragma once

#include <string_view>

namespace korvane::automation {

namespace detail {

// The texts end in "T = korvane::PeakInfo]" and "values = {korvane::PeakCalcType::Area, (korvane::PeakCalcType)7}]".
// A result that is no template keeps notes on it out of them.
template <class T>
constexpr const char* text_of_type() {
    return __PRETTY_FUNCTION__;
}
template <auto... values>
constexpr const char* text_of_values() {
    return __PRETTY_FUNCTION__;
}

constexpr std::string_view last_name(std::string_view text) {
    text = text.substr(0, text.find_last_not_of("]}>") + 1);
    return text.substr(text.rfind("::") + 2);
}

}  // namespace detail

/// "PeakInfo" of `korvane::PeakInfo`.
template <class T>
inline constexpr std::string_view type_name = detail::last_name(detail::text_of_type<T>());

/// "QuadType" of `&korvane::TuneGlobals::QuadType`.
template <auto value>
inline constexpr std::string_view value_name = detail::last_name(detail::text_of_values<value>());

}  // namespace korvane::automation
