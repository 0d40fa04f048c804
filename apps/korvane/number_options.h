// Command-line numbers, read strictly: the whole text, finite, independent of the locale.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::program {

std::optional<double> parse_number(std::string_view text);
std::optional<std::int64_t> parse_integer(std::string_view text);

/// What a number must be besides finite.
struct NumberRule {
    double above = -std::numeric_limits<double>::infinity();
    double below = std::numeric_limits<double>::infinity();
};
inline constexpr NumberRule any_number{};
inline constexpr NumberRule positive{.above = 0};

// Each adds an option (or a positional, for a name without dashes). A text that does not fit is a usage error naming
// it.
CLI::Option* add_number(CLI::App& command, const std::string& name, std::optional<double>& target,
                        const std::string& help, NumberRule rule = any_number);
CLI::Option* add_numbers(CLI::App& command, const std::string& name, std::vector<double>& target,
                         const std::string& help, NumberRule rule = any_number);
/// An integer from `least` to `most`.
CLI::Option* add_count(CLI::App& command, const std::string& name, std::int64_t& target, const std::string& help,
                       std::int64_t least, std::int64_t most);
/// Any 64-bit seed.
CLI::Option* add_seed(CLI::App& command, std::uint64_t& target);

}  // namespace korvane::program
