// One member of a class: what a line of a member table makes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
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
    /// Calls the member with one value a parameter. Left-out arguments with a default have it already; parameters
    /// passed by reference hold their new values afterwards, and no value changes when the call fails.
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
        : Error(error.number(), error.source(),
                error.description() + " (" + std::string(member.parameter_slots[place].name) + " of " +
                    std::string(member.name) + ")"),
          place_(place) {}
    std::size_t place() const noexcept { return place_; }

private:
    std::size_t place_;
};

/// The parameter's default as a value; `Missing` where it has none.
Value default_value_of(const Parameter& parameter);

namespace detail {

template <class T>
inline constexpr bool is_native_object = false;
template <class C>
inline constexpr bool is_native_object<std::shared_ptr<C>> = true;

/// An argument in its native type while the member runs.
template <class A>
struct Argument {
    using T = std::remove_cvref_t<A>;
    static constexpr bool writes_back = std::is_lvalue_reference_v<A> && !std::is_const_v<std::remove_reference_t<A>>;

    Argument(const Member& member, std::size_t place, const Value& given) try
        : value(convert(member.parameter_slots[place], given)) {
    } catch (const Error& error) {
        throw ArgumentError(error, member, place);
    }

    void write_back(Value& given) {
        if constexpr (writes_back) given = Native<T>::to(std::move(value));
    }

    T value;

private:
    static T convert(const Parameter& parameter, const Value& given) {
        if (parameter.direction == Direction::result) return T{};
        if (given.holds<Missing>() && parameter.optional) return T{};
        T converted = Native<T>::from(given);
        if constexpr (is_native_object<T> && !writes_back)
            if (!converted) raise_runtime_fault(error_number::object_not_set);
        return converted;
    }
};

template <auto Function, class C, class R, class... A>
struct NativeCall {
    static constexpr std::size_t arity = sizeof...(A);
    static constexpr DeclaredType result = declared_result<std::remove_cvref_t<R>>();
    static constexpr std::array<DeclaredType, arity> declared{Native<std::remove_cvref_t<A>>::declared...};
    static constexpr std::array<bool, arity> changes{Argument<A>::writes_back...};

    static Value call(const Member& member, void* target, std::span<Value> arguments) {
        return call(member, *static_cast<C*>(target), arguments, std::index_sequence_for<A...>());
    }

private:
    template <std::size_t... Place>
    static Value call(const Member& member, C& target, std::span<Value> arguments, std::index_sequence<Place...>) {
        std::tuple<Argument<A>...> native{Argument<A>(member, Place, arguments[Place])...};
        if constexpr (std::is_void_v<R>) {
            run(target, std::get<Place>(native).value...);
            (std::get<Place>(native).write_back(arguments[Place]), ...);
            return Empty{};
        } else {
            Value result = Native<std::remove_cvref_t<R>>::to(run(target, std::get<Place>(native).value...));
            (std::get<Place>(native).write_back(arguments[Place]), ...);
            return result;
        }
    }

    static R run(C& target, std::remove_cvref_t<A>&... native) {
        if constexpr (std::is_member_function_pointer_v<decltype(Function)>) {
            return (target.*Function)(native...);
        } else {
            return Function(target, native...);
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

template <auto Function, class... Parameters>
constexpr Member make_member(MemberKind kind, std::int32_t dispid, std::string_view name, std::string_view help,
                             Parameters... parameters) {
    using Call = CallOf<Function>;
    static_assert(sizeof...(Parameters) == Call::arity, "a member has one parameter line for each native parameter");
    static_assert(sizeof...(Parameters) <= most_parameters);
    Member member{
        .kind = kind, .dispid = dispid, .name = name, .help = help, .result = Call::result, .call = &Call::call};
    for (const Parameter& parameter : std::initializer_list<Parameter>{parameters...}) {
        Parameter& slot = member.parameter_slots[member.parameter_count];
        slot = parameter;
        if (slot.type.kind == TypeKind::none) slot.type = Call::declared[member.parameter_count];
        slot.changes = Call::changes[member.parameter_count];
        ++member.parameter_count;
    }
    return member;
}

}  // namespace detail

/// A method: a member function, or a function that takes the object first.
template <auto Function, class... Parameters>
constexpr Member method(std::int32_t dispid, std::string_view name, std::string_view help, Parameters... parameters) {
    return detail::make_member<Function>(MemberKind::method, dispid, name, help, parameters...);
}
template <auto Function>
constexpr Member property_get(std::int32_t dispid, std::string_view name, std::string_view help) {
    return detail::make_member<Function>(MemberKind::property_get, dispid, name, help);
}
template <auto Function>
constexpr Member property_put(std::int32_t dispid, std::string_view name, std::string_view help) {
    return detail::make_member<Function>(MemberKind::property_put, dispid, name, help, value("value"));
}

}  // namespace korvane::automation
