// The classes, and calls of their members.
#include <algorithm>
#include <array>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "automation/spectrum_parser_members.h"
#include "automation/store_and_object_members.h"
#include "automation/tune_globals_members.h"
#include "frame/routine.h"
#include "korvane/forwarding.h"

namespace korvane::automation {

namespace {

template <class C>
std::shared_ptr<void> create(const Platform& platform) {
    return std::make_shared<C>(platform);
}

thread_local CallFrame* innermost_frame = nullptr;

/// A clock around whose events the calls in progress on the thread exchange their flags with their callers: what an
/// event handler sets there (`bUserHasCancelledRampInGUI`), the member sees.
class FlagSharingClock final : public ForwardingClock {
public:
    using ForwardingClock::ForwardingClock;
    void process_pending_events() override {
        for_each_flag([](CallFrame& call, std::size_t place) { call.store(place, *call.flags[place]); });
        ForwardingClock::process_pending_events();
        for_each_flag([](CallFrame& call, std::size_t place) { *call.flags[place] = call.load(place).as_boolean(); });
    }

private:
    template <class Exchange>
    static void for_each_flag(Exchange exchange) {
        for (CallFrame* call = innermost_frame; call; call = call->outer)
            for (std::size_t place = 0; place < most_parameters; ++place)
                if (call->flags[place] && call->given(place)) exchange(*call, place);
    }
};

void hand_back(CallFrame& frame) {
    for (std::size_t place = 0; place < most_parameters; ++place)
        if (frame.changed[place] && frame.given(place)) frame.store(place, std::move(frame.arguments[place]));
}

/// Arguments as values, by position and by name.
class ValueArguments final : public CallFrame {
public:
    ValueArguments(const Member& member, Arguments& arguments) {
        const std::string called(member.name);
        if (arguments.positional.size() > member.parameter_count) raise_runtime_fault(too_many_arguments, called);
        for (std::size_t place = 0; place < arguments.positional.size(); ++place)
            sources_[place] = &arguments.positional[place];
        for (auto& [name, value] : arguments.named) {
            const std::int32_t place = parameter_place(member, name);
            if (place < 0) raise_runtime_fault(no_such_argument, name + " of " + called);
            Value*& source = sources_[static_cast<std::size_t>(place)];
            if (source) raise_runtime_fault(too_many_arguments, name + " of " + called + " is given twice");
            source = &value;
        }
    }

    bool given(std::size_t place) const override { return sources_[place] && !sources_[place]->holds<Missing>(); }
    Value load(std::size_t place) const override { return *sources_[place]; }
    void store(std::size_t place, Value changed) override { *sources_[place] = std::move(changed); }

private:
    std::array<Value*, most_parameters> sources_{};
};

}  // namespace

Value default_value_of(const Parameter& parameter) {
    return parameter.has_default() ? value_of(parameter.default_value) : Missing{};
}

std::span<const ClassDescription> class_descriptions() {
    static const std::array<ClassDescription, 8> classes{{
        {"TuneGlobals", "6e684b45-8112-40cc-a61a-aec826883ccd", "9bc6a968-e3f2-43c0-a64a-297d3a1ee9f1",
         "Shared tune state and helpers.", tune_globals_members, &create<TuneGlobals>},
        {"SpectrumParser", "30bbefca-d34c-46f6-93bc-f38f60a102bf", "7711b7af-5a63-4d5a-867c-a65d3593f010",
         "Spectrum acquisition, peak measurement, abundance adjustment.", spectrum_parser_members,
         &create<SpectrumParser>},
        {"CalMassList", "8b2d20f6-2d87-4a3e-b9df-a677257d3d94", "0afd9d74-1aaf-42c3-b6ac-d23494915e1c",
         "The calibrant mass-list file.", cal_mass_list_members, &create<CalMassList>},
        {"clsTuneParamsXML", "e18958ad-2bc6-49bd-baba-00dbca4ce905", "ef41bd08-fb19-4419-bbec-842b24f4df47",
         "The tune parameter file.", tune_params_members, &create<clsTuneParamsXML>},
        {"clsTunePrefsXML", "080ba38a-31d2-40a7-8ea0-672f33042b11", "0fcd36cb-ac62-4c52-a18f-c1298cab3f87",
         "The tune preference file.", tune_prefs_members, &create<clsTunePrefsXML>},
        {"AbortHelper", "563a22ab-aaf4-4cb1-ab7c-c2cae4999944", "691781c6-e04a-407a-a4b7-3bba94599b0f",
         "The abort flag, shared by all processes.", abort_helper_members, &create<AbortHelper>},
        {"PeakList", "b42ed16d-34a6-4dfa-8932-7bd0ed117466", "c1531d77-c2e7-4ca7-9627-f88ff075ced1",
         "The peaks that a search found.", peak_list_members},
        {"MassTimeCalibration", "8f1559e5-a122-4d86-9ca6-97c5a428958e", "ddfa12c3-2ccc-426d-8f9f-772ccf0772af",
         "Conversion between flight time and mass.", mass_time_calibration_members},
    }};
    return classes;
}

const ClassDescription* find_class(std::string_view name) {
    constexpr std::string_view server = "Korvane.";
    if (equal_but_for_case(name.substr(0, server.size()), server)) name.remove_prefix(server.size());
    for (const auto& classes : {class_descriptions(), layer_class_descriptions()})
        for (const ClassDescription& description : classes)
            if (equal_but_for_case(description.name, name)) return &description;
    return nullptr;
}

CallFrame::CallFrame() : outer(std::exchange(innermost_frame, this)) {}

CallFrame::~CallFrame() {
    innermost_frame = outer;
}

Value call_member(const Member& member, const Member::Target& target, CallFrame& frame) {
    for (std::size_t place = 0; place < member.parameter_count; ++place) {
        const Parameter& parameter = member.parameter_slots[place];
        Value& argument = frame.arguments[place];
        try {
            // What a pure result holds before the call does not matter, but that it is there does.
            const bool is_pure_result = parameter.direction == Direction::result;
            argument = !frame.given(place) ? Missing{} : is_pure_result ? Value() : frame.load(place);
            if (!argument.holds<Missing>()) continue;
            if (!parameter.optional) raise_runtime_fault(argument_not_optional);
            argument = default_value_of(parameter);
        } catch (const Error& error) {
            throw ArgumentError(error, member, place, argument);
        }
    }
    Value result;
    try {
        result = member.call(member, target, frame);
    } catch (...) {
        try {
            hand_back(frame);
        } catch (const Error&) {
            // A variable that cannot take its value: the member's own error is what counts.
        }
        throw;
    }
    hand_back(frame);
    return result;
}

std::int32_t parameter_place(const Member& member, std::string_view name) noexcept {
    const auto parameters = member.parameters();
    const auto known =
        std::ranges::find_if(parameters, [&](const Parameter& each) { return equal_but_for_case(each.name, name); });
    return known == parameters.end() ? -1 : static_cast<std::int32_t>(known - parameters.begin());
}

const Member* ClassDescription::find(std::int32_t dispid, Access access) const noexcept {
    for (const Member& member : std::ranges::equal_range(members, dispid, {}, &Member::dispid))
        if (member.access == access || (member.access == Access::get && access == Access::call)) return &member;
    return nullptr;
}

std::int32_t ClassDescription::dispid_of(std::string_view wanted) const noexcept {
    for (const Member& member : members)
        if (equal_but_for_case(member.name, wanted)) return member.dispid;
    return 0;
}

std::string NativeObject::class_name() const {
    return std::string(description_.name);
}

std::int32_t NativeObject::dispid_of(std::string_view member) const {
    const std::int32_t dispid = description_.dispid_of(member);
    if (dispid == 0) raise_runtime_fault(no_such_member, class_name() + "." + std::string(member));
    return dispid;
}

const Member& NativeObject::member(std::int32_t dispid, Access access) const {
    if (const Member* const known = description_.find(dispid, access)) return *known;
    raise_runtime_fault(no_such_member, class_name() + ", member number " + std::to_string(dispid));
}

Value NativeObject::invoke(std::int32_t dispid, Arguments& arguments, Access access) {
    const Member& called = member(dispid, access);
    ValueArguments caller(called, arguments);
    try {
        return call_member(called, target_, caller);
    } catch (...) {
        throw current_error();
    }
}

std::shared_ptr<void> target_of(const Object& object, std::string_view class_name) {
    const auto* const native = dynamic_cast<const NativeObject*>(object.get());
    if (!native) return adapt(object, class_name);
    return native->description().name == class_name ? native->target() : nullptr;
}

Object create_object(std::string_view prog_id, const Platform& platform) {
    const ClassDescription* const description = find_class(prog_id);
    if (!description || !description->create) raise_runtime_fault(cannot_create, std::string(prog_id));
    Platform sharing = platform;
    sharing.clock = std::make_shared<FlagSharingClock>(platform.clock);
    return std::make_shared<NativeObject>(*description, description->create(sharing));
}

Object create_object(std::string_view prog_id) {
    return create_object(prog_id, process_platform());
}

#ifndef _WIN32  // where the system has no automation objects

const Platform& process_platform() {
    return Platform::process_default();
}

Platform make_outside_platform(const std::string& instrument) {
    return korvane::make_outside_platform(instrument);
}

Platform with_system_tracer(Platform platform) {
    return platform;
}

#endif

}  // namespace korvane::automation
