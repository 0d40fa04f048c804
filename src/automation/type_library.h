// The type library: its identity, its enumerations, and its definition in the dialects of its two readers.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::automation {

inline constexpr std::string_view library_id = "5aa8e6dd-acb0-496d-ae14-d4459c479825";
inline constexpr int library_major_version = 1;
inline constexpr int library_minor_version = 0;

struct EnumerationDescription {
    std::string_view name;
    std::vector<std::pair<std::string, std::int32_t>> members;
};

std::span<const EnumerationDescription> enumeration_descriptions();

enum class IdlDialect {
    standard,
    /// For widl, which finds no system interfaces to import and cannot write every default: singles stand as their
    /// bits; doubles, texts and variants, to be put into the type library afterwards, as 0.
    widl
};

std::string idl_text(IdlDialect dialect);

}  // namespace korvane::automation
