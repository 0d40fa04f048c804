// One member of a class: what a line of a member table makes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "automation/declared_type.h"
#include "automation/native_types.h"

namespace korvane::automation {

enum class MemberKind : std::uint8_t { method, property_get, property_put };

inline constexpr std::size_t most_parameters = 8;

struct Member {
    /// Calls the member with one value a parameter. Left-out arguments with a default have it already; parameters that
    /// the member changes hold their new values afterwards.
    using Call = Value (*)(const Member&, void* target, std::span<Value> arguments);

    MemberKind kind = MemberKind::method;
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

/// A failed conversion of an argument, with the place of its parameter.
class ArgumentError : public Error {
public:
    ArgumentError(const Error& error, const Member& member, std::size_t place)
        : Error(error.described(error.description() + " (" + std::string(member.parameter_slots[place].name) + " of " +
                                std::string(member.name) + ")")),
          place_(place) {}
    std::size_t place() const noexcept { return place_; }

private:
    std::size_t place_;
};

/// The parameter's default as a value; `Missing` where it has none.
Value default_value_of(const Parameter& parameter);

namespace detail {

template <class A>
inline constexpr bool changes = std::is_lvalue_reference_v<A> && !std::is_const_v<std::remove_reference_t<A>>;

template <class T>
inline constexpr bool is_native_object = false;
template <class C>
inline constexpr bool is_native_object<std::shared_ptr<C>> = true;

/// An argument in its native type. An object that the member only reads must be one.
template <class A, class T = std::remove_cvref_t<A>>
T native_argument(const Member& member, std::size_t place, const Value& given) try {
    const Parameter& parameter = member.parameter_slots[place];
    if (parameter.direction == Direction::result || (given.holds<Missing>() && parameter.optional)) return T{};
    T converted = Native<T>::from(given);
    if constexpr (is_native_object<T> && !changes<A>)
        if (!converted) raise_runtime_fault(error_number::object_not_set);
    return converted;
} catch (const Error& error) {
    throw ArgumentError(error, member, place);
}

template <auto Function, class C, class R, class... A>
struct NativeCall {
    static constexpr std::size_t arity = sizeof...(A);
    static constexpr DeclaredType result = declared_result<std::remove_cvref_t<R>>();
    static constexpr std::array<DeclaredType, arity> declared{Native<std::remove_cvref_t<A>>::declared...};
    static constexpr std::array<bool, arity> changed{changes<A>...};

    static Value call(const Member& member, void* target, std::span<Value> arguments) {
        return call(member, *static_cast<C*>(target), arguments, std::index_sequence_for<A...>());
    }

private:
    template <std::size_t... Place>
    static Value call([[maybe_unused]] const Member& member, C& target, [[maybe_unused]] std::span<Value> arguments,
                      std::index_sequence<Place...>) {
        std::tuple<std::remove_cvref_t<A>...> native{native_argument<A>(member, Place, arguments[Place])...};
        const auto run = [&]() -> R { return std::invoke(Function, target, std::get<Place>(native)...); };
        Value result;
        if constexpr (std::is_void_v<R>) {
            run();
        } else {
            result = Native<std::remove_cvref_t<R>>::to(run());
        }
        (write_back<A>(std::get<Place>(native), arguments[Place]), ...);
        return result;
    }

    template <class Argument, class T>
    static void write_back(T& native, Value& argument) {
        if constexpr (changes<Argument>) argument = Native<T>::to(std::move(native));
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
constexpr Member make_member(MemberKind kind, std::int32_t dispid, std::string_view name, std::string_view help,
                             std::initializer_list<Parameter> parameters) {
    using Call = CallOf<Function>;
    static_assert(Call::arity <= most_parameters);
    if (parameters.size() != Call::arity) throw "a member has one parameter line for each native parameter";
    Member member{
        .kind = kind, .dispid = dispid, .name = name, .help = help, .result = Call::result, .call = &Call::call};
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

}  // namespace detail

/// A method: a member function, which lends its name, or a named function that takes the object first.
template <auto Function, std::same_as<Parameter>... Parameters>
constexpr Member method(std::int32_t dispid, std::string_view help, Parameters... parameters) {
    return detail::make_member<Function>(MemberKind::method, dispid, value_name<Function>, help, {parameters...});
}
template <auto Function, std::same_as<Parameter>... Parameters>
constexpr Member method(std::int32_t dispid, std::string_view name, std::string_view help, Parameters... parameters) {
    return detail::make_member<Function>(MemberKind::method, dispid, name, help, {parameters...});
}
template <auto Get>
constexpr Member property(std::int32_t dispid, std::string_view name, std::string_view help) {
    return detail::make_member<Get>(MemberKind::property_get, dispid, name, help, {});
}
/// A property that can be set; its name is that of the function that reads it.
template <auto Get, auto Put>
constexpr std::array<Member, 2> property(std::int32_t dispid, std::string_view help) {
    return {property<Get>(dispid, value_name<Get>, help),
            detail::make_member<Put>(MemberKind::property_put, dispid, value_name<Get>, help, {value("value")})};
}

/// The members in the order of their numbers, which is that of the vtable: both are a public contract.
template <class... Rows>
constexpr auto member_table(const Rows&... rows) {
    std::array<Member, ((sizeof(Rows) / sizeof(Member)) + ...)> table;
    std::size_t count = 0;
    const auto add = [&](const Member& member) {
        if (member.dispid < 1 || (count > 0 && member.dispid < table[count - 1].dispid)) throw "numbers ascend from 1";
        table[count++] = member;
    };
    const auto add_row = [&](const auto& row) {
        if constexpr (std::is_same_v<std::remove_cvref_t<decltype(row)>, Member>) {
            add(row);
        } else {
            for (const Member& member : row) add(member);
        }
    };
    (add_row(rows), ...);
    return table;
}

}  // namespace korvane::automation
