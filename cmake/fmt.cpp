// {fmt} compiled once, for a target without its library: the functions, and the templates that its headers leave to it.
#include <fmt/format-inl.h>

template fmt::detail::thousands_sep_result<char> fmt::detail::thousands_sep_impl<char>(fmt::detail::locale_ref);
template char fmt::detail::decimal_point_impl<char>(fmt::detail::locale_ref);
template std::locale fmt::detail::locale_ref::get<std::locale>() const;
