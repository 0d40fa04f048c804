// The enumerations of the automation interface, as data.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::automation {

struct Enumerator {
    std::string name;
    std::int32_t value;
};

struct EnumerationDescription {
    std::string_view name;
    std::vector<Enumerator> members;
};

std::span<const EnumerationDescription> enumeration_descriptions();

}  // namespace korvane::automation
