#include "automation/late_binding.h"

#include <algorithm>
#include <array>
#include <memory>

#include "automation/error_numbers.h"
#include "automation/native_object.h"
#include "frame/routine.h"
#include "korvane/forwarding.h"
#include "platform/text.h"

namespace korvane::automation {

namespace {

/// Room for the arguments of one call; only as many values are made as the member has parameters.
class ArgumentStack {
public:
    explicit ArgumentStack(std::size_t count) : values_(reinterpret_cast<Value*>(room_), count) {
        for (Value& value : values_) std::construct_at(&value, Missing{});
    }
    ~ArgumentStack() { std::destroy(values_.begin(), values_.end()); }
    ArgumentStack(const ArgumentStack&) = delete;
    ArgumentStack& operator=(const ArgumentStack&) = delete;

    std::span<Value> values() { return values_; }

private:
    alignas(Value) std::byte room_[most_parameters * sizeof(Value)];
    std::span<Value> values_;
};

/// A call while its member runs, and the one that it was made in.
struct CallInProgress {
    CallInProgress(CallerArguments& its_caller, CallFrame& its_frame) : caller(its_caller), frame(its_frame) {
        innermost = this;
    }
    ~CallInProgress() { innermost = outer; }
    CallInProgress(const CallInProgress&) = delete;
    CallInProgress& operator=(const CallInProgress&) = delete;

    static thread_local CallInProgress* innermost;
    CallerArguments& caller;
    CallFrame& frame;
    CallInProgress* const outer = innermost;
};
thread_local CallInProgress* CallInProgress::innermost = nullptr;

class FlagSharingClock final : public ForwardingClock {
public:
    using ForwardingClock::ForwardingClock;
    void process_pending_events() override {
        for_each_flag([](CallerArguments& caller, std::size_t place, bool& flag) { caller.store(place, flag); });
        ForwardingClock::process_pending_events();
        for_each_flag(
            [](CallerArguments& caller, std::size_t place, bool& flag) { flag = caller.load(place).as_boolean(); });
    }

private:
    template <class Exchange>
    static void for_each_flag(Exchange exchange) {
        for (CallInProgress* call = CallInProgress::innermost; call; call = call->outer)
            for (std::size_t place = 0; place < call->frame.arguments.size(); ++place)
                if (call->frame.flags[place] && call->caller.given(place))
                    exchange(call->caller, place, *call->frame.flags[place]);
    }
};

Value run(const Member& member, void* target, CallerArguments& caller, CallFrame& frame) {
    const CallInProgress in_progress(caller, frame);
    try {
        return member.call(member, target, frame);
    } catch (const Error&) {
        throw;
    } catch (...) {
        throw current_error();
    }
}

void hand_back(CallerArguments& caller, CallFrame& frame) {
    for (std::size_t place = 0; place < frame.arguments.size(); ++place)
        if (frame.changed[place] && caller.given(place)) caller.store(place, std::move(frame.arguments[place]));
}

/// Arguments as values, by position and by name.
class ValueArguments final : public CallerArguments {
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

Value call_member(const Member& member, void* target, CallerArguments& caller) {
    ArgumentStack stack(member.parameter_count);
    const std::span<Value> arguments = stack.values();
    for (std::size_t place = 0; place < arguments.size(); ++place) {
        if (!caller.given(place)) continue;
        // What a pure result holds before the call does not matter, but that it is there does.
        const bool pure_result = member.parameter_slots[place].direction == Direction::result;
        try {
            arguments[place] = pure_result ? Value() : caller.load(place);
        } catch (const Error& error) {
            throw ArgumentError(error, member, place, Value());
        }
    }
    for (std::size_t place = 0; place < arguments.size(); ++place) {
        if (!arguments[place].holds<Missing>()) continue;
        const Parameter& parameter = member.parameter_slots[place];
        if (!parameter.optional)
            throw ArgumentError(Error(argument_not_optional, "Korvane", "Argument not optional"), member, place,
                                Missing{});
        arguments[place] = default_value_of(parameter);
    }
    CallFrame frame{arguments};
    Value result;
    try {
        result = run(member, target, caller, frame);
    } catch (...) {
        try {
            hand_back(caller, frame);
        } catch (const Error&) {
            // A variable that cannot take its value: the member's own error is what counts.
        }
        throw;
    }
    hand_back(caller, frame);
    return result;
}

Platform with_shared_flags(Platform platform) {
    platform.clock = std::make_shared<FlagSharingClock>(std::move(platform.clock));
    return platform;
}

std::int32_t parameter_place(const Member& member, std::string_view name) noexcept {
    const auto parameters = member.parameters();
    const auto known = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const Parameter& each) { return equal_but_for_case(each.name, name); });
    return known == parameters.end() ? -1 : static_cast<std::int32_t>(known - parameters.begin());
}

const Member* ClassDescription::find(std::int32_t dispid, Access access) const noexcept {
    const auto serves = [access](MemberKind kind) {
        if (access == Access::call) return kind != MemberKind::property_put;
        return kind == (access == Access::put ? MemberKind::property_put : MemberKind::property_get);
    };
    for (const Member& member : std::ranges::equal_range(members, dispid, {}, &Member::dispid))
        if (serves(member.kind)) return &member;
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

Value NativeObject::invoke(std::int32_t dispid, Arguments& arguments, Access access) {
    const Member* const member = description_.find(dispid, access);
    if (!member) raise_runtime_fault(no_such_member, class_name() + ", member number " + std::to_string(dispid));
    ValueArguments caller(*member, arguments);
    return call_member(*member, target_.get(), caller);
}

std::shared_ptr<void> target_of(const Object& object, const ClassDescription& description) {
    const auto* const native = dynamic_cast<const NativeObject*>(object.get());
    return native && &native->description() == &description ? native->target() : nullptr;
}

Object create_object(std::string_view prog_id, const Platform& platform) {
    const ClassDescription* const description = find_class(prog_id);
    if (!description || !description->create) raise_runtime_fault(cannot_create, std::string(prog_id));
    return std::make_shared<NativeObject>(*description, description->create(with_shared_flags(platform)));
}

Object create_object(std::string_view prog_id) {
    return create_object(prog_id, process_platform());
}

}  // namespace korvane::automation
