// The enumerations of the automation interface, as data.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace korvane::automation {

struct Enumerator {
    std::string_view name;
    std::int32_t value;
};

struct EnumerationDescription {
    std::string_view name;
    std::span<const Enumerator> members;
};

std::span<const EnumerationDescription> enumeration_descriptions();

}  // namespace korvane::automation
