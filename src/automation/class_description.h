// What automation knows of a class, and the list of the classes.
#pragma once

#include <memory>
#include <string>

#include "automation/member.h"
#include "korvane/automation.h"
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

    std::string interface_name() const { return std::string("_").append(name); }
    std::string prog_id() const { return "Korvane." + std::string(name); }

    /// The member of a number that serves an access; null where there is none.
    const Member* find(std::int32_t dispid, Access access) const noexcept;
    /// Number of a member, whatever the case of its name; 0 where there is none.
    std::int32_t dispid_of(std::string_view name) const noexcept;
};

/// The parameter's default as a value; `Missing` where it has none.
Value default_value_of(const Parameter& parameter);

/// The call itself, once a member is found: the same for late binding, IDispatch::Invoke and the vtable. Binds the
/// arguments, calls, and hands back those that the member changes by reference; where it raises, those that it had
/// changed by then. Errors, besides the member's own: `ArgumentError` with the conversion's number, or 449 for a
/// required argument left out.
Value call_member(const Member& member, const Member::Target& target, CallFrame& frame);

/// Place of a parameter, whatever the case of its name; -1 where there is none.
std::int32_t parameter_place(const Member& member, std::string_view name) noexcept;

/// "Function GetMetaValue(ByVal SetpointExternalName As String) As Double".
std::string signature_text(const Member& member);

/// The creatable classes, then those of the objects that they return.
std::span<const ClassDescription> class_descriptions();
/// The objects of an instrument layer, with the members of docs/instrument-objects.md; the layer itself first.
std::span<const ClassDescription> layer_class_descriptions();

}  // namespace korvane::automation
