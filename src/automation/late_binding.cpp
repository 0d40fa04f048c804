#include "automation/late_binding.h"

#include <array>

#include "automation/native_object.h"
#include "frame/routine.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t cannot_create = 429;
constexpr std::int32_t no_such_member = 438;
constexpr std::int32_t no_such_argument = 448;
constexpr std::int32_t argument_not_optional = 449;
constexpr std::int32_t too_many_arguments = 450;

std::string text_of_name(const Member& member) {
    return std::string(member.name);
}

/// Where every argument comes from: pointers into the caller's arguments, null where one is left out.
using Sources = std::array<Value*, most_parameters>;

Sources place_arguments(const Member& member, Arguments& arguments) {
    Sources sources{};
    if (arguments.positional.size() > member.parameter_count)
        raise_runtime_fault(too_many_arguments, text_of_name(member));
    for (std::size_t place = 0; place < arguments.positional.size(); ++place)
        sources[place] = &arguments.positional[place];
    for (auto& [name, value] : arguments.named) {
        const std::int32_t place = MemberIndex::parameter_place(member, std::string_view(name));
        if (place < 0) raise_runtime_fault(no_such_argument, name + " of " + text_of_name(member));
        Value*& source = sources[static_cast<std::size_t>(place)];
        if (source) raise_runtime_fault(too_many_arguments, name + " of " + text_of_name(member) + " is given twice");
        source = &value;
    }
    return sources;
}

}  // namespace

Value default_value_of(const Parameter& parameter) {
    return std::visit(
        [](const auto& value) -> Value {
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(value)>, std::monostate>) {
                return Missing{};
            } else {
                return value;
            }
        },
        parameter.default_value);
}

Value call_member(const Member& member, void* target, std::span<Value> placed) {
    for (std::size_t place = 0; place < member.parameter_count; ++place) {
        if (!placed[place].holds<Missing>()) continue;
        const Parameter& parameter = member.parameter_slots[place];
        if (!parameter.optional)
            throw ArgumentError(Error(argument_not_optional, "Korvane", "Argument not optional"), member, place);
        placed[place] = default_value_of(parameter);
    }
    try {
        return member.call(member, target, placed);
    } catch (const Error&) {
        throw;
    } catch (...) {
        throw current_error();
    }
}

std::string NativeObject::class_name() const {
    return std::string(description_.name);
}

std::int32_t NativeObject::dispid_of(std::string_view member) const {
    const std::int32_t dispid = description_.index.dispid_of(member);
    if (dispid == 0) raise_runtime_fault(no_such_member, class_name() + "." + std::string(member));
    return dispid;
}

Value NativeObject::invoke(std::int32_t dispid, Arguments& arguments, Access access) {
    const Member* const member = description_.index.find(dispid, access);
    if (!member) raise_runtime_fault(no_such_member, class_name() + ", member number " + std::to_string(dispid));
    const Sources sources = place_arguments(*member, arguments);
    ArgumentStack placed(member->parameter_count);
    for (std::size_t place = 0; place < member->parameter_count; ++place)
        if (sources[place]) placed[place] = *sources[place];
    Value result = call_member(*member, target_.get(), placed.values());
    for (std::size_t place = 0; place < member->parameter_count; ++place)
        if (sources[place] && member->parameter_slots[place].changes && !sources[place]->holds<Missing>())
            *sources[place] = std::move(placed[place]);
    return result;
}

bool same_object(const Object& left, const Object& right) {
    if (left == right) return true;
    const auto* const native = dynamic_cast<const NativeObject*>(left.get());
    const auto* const other = dynamic_cast<const NativeObject*>(right.get());
    return native && other && native->target() == other->target();
}

std::shared_ptr<void> target_of(const Object& object, std::string_view class_name) {
    const auto* const native = dynamic_cast<const NativeObject*>(object.get());
    return native && native->description().name == class_name ? native->target() : nullptr;
}

Object create_object(std::string_view prog_id, const Platform& platform) {
    const ClassDescription* const description = find_class(prog_id);
    if (!description || !description->create) raise_runtime_fault(cannot_create, std::string(prog_id));
    return std::make_shared<NativeObject>(*description, description->create(platform));
}

Object create_object(std::string_view prog_id) {
    return create_object(prog_id, process_platform());
}

}  // namespace korvane::automation
