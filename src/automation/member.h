// One member of a class: what a line of a member table makes.
#pragma once

#include <functional>
#include <span>
#include <tuple>
#include <utility>

#include "automation/native_types.h"

namespace korvane::automation {

inline constexpr std::size_t most_parameters = 8;

/// One call, by the places of the parameters. Every kind of caller has its own, and says there how it holds arguments.
class CallFrame {
public:
    CallFrame();
    virtual ~CallFrame();
    CallFrame(const CallFrame&) = delete;
    CallFrame& operator=(const CallFrame&) = delete;

    /// Whether the caller gives the argument; one that is left out has its default and no place to go back to.
    virtual bool given(std::size_t place) const = 0;
    virtual Value load(std::size_t place) const = 0;
    /// Puts what the member made of the argument into the caller's variable, where it is one.
    virtual void store(std::size_t place, Value changed) = 0;

    std::array<Value, most_parameters> arguments;
    std::array<bool, most_parameters> changed{};  ///< what the member has assigned to, also where it then raised
    /// The member's own variable of a flag by reference, while it runs: its caller may set it in an event.
    std::array<bool*, most_parameters> flags{};
    CallFrame* const outer;  ///< the call of this thread in which it is made
};

struct Member {
    using Target = std::shared_ptr<void>;
    using Call = Value (*)(const Member&, const Target& target, CallFrame& frame);

    Access access = Access::call;  ///< a method by a call, a property by its own
    std::int32_t dispid = 0;
    std::string_view name = {};
    std::string_view help = {};
    std::array<Parameter, most_parameters> parameter_slots = {};
    std::size_t parameter_count = 0;
    DeclaredType result = {};
    Call call = nullptr;

    constexpr std::span<const Parameter> parameters() const { return {parameter_slots.data(), parameter_count}; }

    /// The same member with its result declared as a variant.
    constexpr Member returning_variant() const {
        Member copy = *this;
        copy.result = {TypeKind::variant};
        return copy;
    }
};

/// A failed conversion of an argument; names the parameter, with the value in brackets.
class ArgumentError : public Error {
public:
    ArgumentError(const Error& error, const Member& member, std::size_t place, const Value& given)
        : Error(error.described(error.description() + " (" + std::string(member.parameter_slots[place].name) + "[" +
                                given.shown() + "] of " + std::string(member.name) + ")")),
          place_(place) {}
    std::size_t place() const noexcept { return place_; }

private:
    std::size_t place_;
};

namespace detail {

template <class A>
inline constexpr bool changes = std::is_lvalue_reference_v<A> && !std::is_const_v<std::remove_reference_t<A>>;

/// What a pure result is until the member assigns to it: an array that no member makes, 0 for others.
template <class T>
inline const T unassigned{};
template <class T>
inline const VariantArray<T> unassigned<VariantArray<T>>{std::vector<T>()};

/// An argument in its native type.
template <class T>
T native_argument(const Member& member, std::size_t place, const Value& given) try {
    const Parameter& parameter = member.parameter_slots[place];
    if (parameter.direction == Direction::result) return unassigned<T>;
    return given.holds<Missing>() && parameter.optional ? T{} : Native<T>::from(given);
} catch (const Error& error) {
    throw ArgumentError(error, member, place, given);
}

template <auto Function, class C, class R, class... A>
struct NativeCall {
    using Result = std::remove_cvref_t<std::remove_pointer_t<R>>;
    static constexpr std::size_t arity = sizeof...(A);
    static constexpr DeclaredType result = declared_result<Result>();
    static constexpr std::array<DeclaredType, arity> declared{Native<std::remove_cvref_t<A>>::declared...};
    static constexpr std::array<bool, arity> changed{changes<A>...};

    static Value call(const Member& member, const Member::Target& target, CallFrame& frame) {
        return call(member, target, frame, std::index_sequence_for<A...>());
    }

private:
    template <std::size_t... Place>
    static Value call([[maybe_unused]] const Member& member, const Member::Target& target,
                      [[maybe_unused]] CallFrame& frame, std::index_sequence<Place...>) {
        std::tuple<std::remove_cvref_t<A>...> native{
            native_argument<std::remove_cvref_t<A>>(member, Place, frame.arguments[Place])...};
        (expose<A>(std::get<Place>(native), frame.flags[Place]), ...);
        const auto finish = [&]([[maybe_unused]] bool succeeded) {
            frame.flags = {};
            (hand_back<A>(std::get<Place>(native), Place, frame, succeeded), ...);
        };
        try {
            Value result;
            const auto run = [&]() -> R {
                return std::invoke(Function, *static_cast<C*>(target.get()), std::get<Place>(native)...);
            };
            if constexpr (std::is_void_v<R>) {
                run();
            } else if constexpr (ObjectClass<Result>) {  // a part of the object, which lives as long as its owner
                Result* part = nullptr;
                if constexpr (std::is_pointer_v<R>)
                    part = run();
                else
                    part = &run();
                result = make_object(std::shared_ptr<Result>(target, part));
            } else {
                result = Native<Result>::to(run());
            }
            finish(true);
            return result;
        } catch (...) {
            finish(false);
            throw;
        }
    }

    template <class Argument, class T>
    static void expose([[maybe_unused]] T& native, [[maybe_unused]] bool*& flag) {
        if constexpr (changes<Argument> && std::is_same_v<T, bool>) flag = &native;
    }

    /// After a failure nothing counts as changed that has its value from before the call.
    template <class Argument, class T>
    static void hand_back(T& native, std::size_t place, CallFrame& frame, bool succeeded) {
        if constexpr (changes<Argument>) {
            if constexpr (requires { native.storage(); })
                if (native.storage() == unassigned<T>.storage()) return;
            Value now = Native<T>::to(std::move(native));
            const Value& before = frame.arguments[place];
            if (!succeeded && (now == before || (before.holds<Empty>() && now == Native<T>::to(T{})))) return;
            frame.arguments[place] = std::move(now);
            frame.changed[place] = true;
        }
    }
};

template <auto Function, class Type = decltype(Function)>
struct CallOf;
template <auto Function, class C, class R, class... A>
struct CallOf<Function, R (C::*)(A...)> : NativeCall<Function, C, R, A...> {};
template <auto Function, class C, class R, class... A>
struct CallOf<Function, R (C::*)(A...) const> : NativeCall<Function, C, R, A...> {};
template <auto Function, class C, class R, class... A>
struct CallOf<Function, R (*)(C&, A...)> : NativeCall<Function, C, R, A...> {};

template <auto Function>
constexpr Member make_member(Access access, std::int32_t dispid, std::string_view name, std::string_view help,
                             std::initializer_list<Parameter> parameters) {
    using Call = CallOf<Function>;
    static_assert(Call::arity <= most_parameters);
    if (parameters.size() != Call::arity) throw "a member has one parameter line for each native parameter";
    Member member{
        .access = access, .dispid = dispid, .name = name, .help = help, .result = Call::result, .call = &Call::call};
    for (const Parameter& parameter : parameters) {
        Parameter& slot = member.parameter_slots[member.parameter_count];
        slot = parameter;
        if (slot.type.kind == TypeKind::none) slot.type = Call::declared[member.parameter_count];
        slot.changes = Call::changed[member.parameter_count];
        if (slot.changes && !slot.is_by_reference()) throw "what the member changes is passed by reference";
        ++member.parameter_count;
    }
    return member;
}

constexpr std::span<const Member> members_of(const Member& member) {
    return {&member, 1};
}
constexpr std::span<const Member> members_of(const std::array<Member, 2>& get_and_put) {
    return get_and_put;
}

}  // namespace detail

/// A method: a member function, which lends its name, or a named function that takes the object first.
template <auto Function, std::same_as<Parameter>... Parameters>
constexpr Member method(std::int32_t dispid, std::string_view help, Parameters... parameters) {
    return detail::make_member<Function>(Access::call, dispid, value_name<Function>, help, {parameters...});
}
template <auto Function, std::same_as<Parameter>... Parameters>
constexpr Member method(std::int32_t dispid, std::string_view name, std::string_view help, Parameters... parameters) {
    return detail::make_member<Function>(Access::call, dispid, name, help, {parameters...});
}
template <auto Get>
constexpr Member property(std::int32_t dispid, std::string_view name, std::string_view help) {
    return detail::make_member<Get>(Access::get, dispid, name, help, {});
}
/// A property that can be set; its name is that of the function that reads it.
template <auto Get, auto Put>
constexpr std::array<Member, 2> property(std::int32_t dispid, std::string_view help) {
    return {property<Get>(dispid, value_name<Get>, help),
            detail::make_member<Put>(Access::put, dispid, value_name<Get>, help, {value("value")})};
}

/// The members in the order of their numbers, which is that of the vtable: both are a public contract.
template <class... Rows>
constexpr auto member_table(const Rows&... rows) {
    std::array<Member, ((sizeof(Rows) / sizeof(Member)) + ...)> table;
    auto* end = table.begin();
    const auto add = [&](std::span<const Member> members) { end = std::ranges::copy(members, end).out; };
    (add(detail::members_of(rows)), ...);
    if (table.front().dispid < 1 || !std::ranges::is_sorted(table, {}, &Member::dispid)) throw "numbers ascend from 1";
    return table;
}

}  // namespace korvane::automation
