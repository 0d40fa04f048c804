// What automation knows of a class, and the list of the classes.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "automation/member_index.h"
#include "korvane/platform.h"

namespace korvane::automation {

struct ClassDescription {
    std::string_view name;
    std::string_view class_id;
    std::string_view interface_id;
    std::string_view help;
    std::span<const Member> members;  ///< in vtable order, a public contract
    /// Makes the native object; null for a class that is not creatable.
    std::shared_ptr<void> (*create)(const Platform&) = nullptr;
    MemberIndex index{members};

    std::string interface_name() const { return std::string("_").append(name); }
    std::string prog_id() const { return "Korvane." + std::string(name); }
};

/// The creatable classes, then those of the objects that they return.
std::span<const ClassDescription> class_descriptions();
/// By name or ProgID, whatever the case; null for an unknown one.
const ClassDescription* find_class(std::string_view name);

}  // namespace korvane::automation
