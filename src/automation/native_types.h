// For every type of a native signature: how it is declared, made of a value, and turned into one. The one place where
// native members and automation meet.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <type_traits>

#include "automation/declared_type.h"
#include "automation/native_arrays.h"
#include "automation/native_object.h"
#include "automation/records.h"
#include "automation/type_names.h"

namespace korvane::automation {

/// A native type that values convert to by a function of their own, and that they hold as it is.
template <class T, TypeKind kind, auto convert>
struct Held {
    static constexpr DeclaredType declared{kind};
    static T from(const Value& value) { return (value.*convert)(); }
    static Value to(T value) { return value; }
};

/// `declared`, `from(const Value&)` and `to(T)`. A type that automation does not know has no specialisation.
template <class T>
struct Native;

template <>
struct Native<void> {
    static constexpr DeclaredType declared{TypeKind::none};
};
template <>
struct Native<Value> {
    static constexpr DeclaredType declared{TypeKind::variant};
    static Value from(const Value& value) { return value; }
    static Value to(Value value) { return value; }
};
template <>
struct Native<bool> : Held<bool, TypeKind::boolean, &Value::as_boolean> {};
template <>
struct Native<std::int32_t> : Held<std::int32_t, TypeKind::long_integer, &Value::as_int32> {};
template <>
struct Native<float> : Held<float, TypeKind::single, &Value::as_single> {};
template <>
struct Native<double> : Held<double, TypeKind::real, &Value::as_double> {};
template <>
struct Native<std::string> : Held<std::string, TypeKind::text, &Value::as_text> {};
template <>
struct Native<Object> : Held<Object, TypeKind::object, &Value::as_object> {};

template <>
struct Native<InstrumentValue> {
    static constexpr DeclaredType declared{TypeKind::variant};
    static InstrumentValue from(const Value& value) { return instrument_value_from(value); }
    static Value to(const InstrumentValue& item) { return value_of(item); }
};

/// Any 32-bit value passes: what a routine makes of one outside the enumeration is its own rule.
template <class E>
requires std::is_enum_v<E>
struct Native<E> {
    static_assert(sizeof(E) == sizeof(std::int32_t));
    static constexpr DeclaredType declared{TypeKind::enumeration, type_name<E>};
    static E from(const Value& value) { return static_cast<E>(value.as_int32()); }
    static Value to(E value) { return static_cast<std::int32_t>(value); }
};

/// An array of as many numbers is taken for the record's fields, and Empty for zeros, so that a script, which cannot
/// make records, can pass one.
template <class R>
requires(detail::alternative_of<R, Record>) struct Native<R> {
    static constexpr DeclaredType declared{TypeKind::record, type_name<R>};
    static R from(const Value& value) {
        if (value.holds<Empty>()) return R{};
        if (const auto* array = value.get_if<Array>()) return std::get<R>(record_from_array(type_name<R>, *array));
        if (const auto* record = value.get_if<Record>())
            if (const R* wanted = std::get_if<R>(record)) return *wanted;
        raise_runtime_fault(error_number::type_mismatch,
                            value.kind_name() + " is no " + std::string(type_name<R>) + " record");
    }
    static Value to(const R& value) { return value; }
};

template <class T>
struct Native<VariantArray<T>> {
    static constexpr DeclaredType declared{TypeKind::variant};
    static VariantArray<T> from(const Value& value) { return array_from<T>(value); }
    static Value to(const VariantArray<T>& array) { return value_of(array); }
};
/// Left out is not the same as Empty.
template <class T>
struct Native<std::optional<VariantArray<T>>> {
    static constexpr DeclaredType declared{TypeKind::variant};
    static std::optional<VariantArray<T>> from(const Value& value) { return array_from<T>(value); }
};
template <class T>
struct Native<VariantMatrix<T>> {
    static constexpr DeclaredType declared{TypeKind::variant};
    static VariantMatrix<T> from(const Value& value) { return matrix_from<T>(value); }
    static Value to(const VariantMatrix<T>& matrix) { return value_of(matrix); }
};

template <class C>
requires is_object_class<C>
struct Native<std::shared_ptr<C>> {
    static constexpr DeclaredType declared{TypeKind::object, type_name<C>};
    static std::shared_ptr<C> from(const Value& value) { return native_from<C>(value.as_object()); }
    static Value to(std::shared_ptr<C> object) { return make_object(std::move(object)); }
};

/// How a native result is declared: arrays of numbers and texts are returned as such, not inside a variant.
template <class T>
constexpr DeclaredType declared_result() {
    if (std::is_same_v<T, VariantArray<double>>) return {TypeKind::real_array};
    if (std::is_same_v<T, VariantArray<std::string>>) return {TypeKind::text_array};
    return Native<T>::declared;
}

}  // namespace korvane::automation
