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
#include "korvane/autotune_status.h"
#include "korvane/enumerations.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"

namespace korvane::automation {

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
struct Native<bool> {
    static constexpr DeclaredType declared{TypeKind::boolean};
    static bool from(const Value& value) { return value.as_boolean(); }
    static Value to(bool value) { return value; }
};
template <>
struct Native<std::int32_t> {
    static constexpr DeclaredType declared{TypeKind::long_integer};
    static std::int32_t from(const Value& value) { return value.as_int32(); }
    static Value to(std::int32_t value) { return value; }
};
template <>
struct Native<float> {
    static constexpr DeclaredType declared{TypeKind::single};
    static float from(const Value& value) { return value.as_single(); }
    static Value to(float value) { return value; }
};
template <>
struct Native<double> {
    static constexpr DeclaredType declared{TypeKind::real};
    static double from(const Value& value) { return value.as_double(); }
    static Value to(double value) { return value; }
};
template <>
struct Native<std::string> {
    static constexpr DeclaredType declared{TypeKind::text};
    static std::string from(const Value& value) { return value.as_text(); }
    static Value to(std::string value) { return value; }
};
template <>
struct Native<Object> {
    static constexpr DeclaredType declared{TypeKind::object};
    static Object from(const Value& value) { return value.as_object(); }
    static Value to(Object value) { return value; }
};

/// Names of the enumerations that occur in signatures.
template <class E>
inline constexpr std::string_view enumeration_name = {};
template <>
inline constexpr std::string_view enumeration_name<enumPeakInfoUnits> = "enumPeakInfoUnits";
template <>
inline constexpr std::string_view enumeration_name<enumQuadType> = "enumQuadType";
template <>
inline constexpr std::string_view enumeration_name<PeakCalcType> = "PeakCalcType";
template <>
inline constexpr std::string_view enumeration_name<PolaritySetpoint> = "PolaritySetpoint";

/// Any 32-bit value passes: what a routine makes of one outside the enumeration is its own rule.
template <class E>
requires std::is_enum_v<E>
struct Native<E> {
    static_assert(!enumeration_name<E>.empty() && sizeof(E) == sizeof(std::int32_t));
    static constexpr DeclaredType declared{TypeKind::enumeration, enumeration_name<E>};
    static E from(const Value& value) { return static_cast<E>(value.as_int32()); }
    static Value to(E value) { return static_cast<std::int32_t>(value); }
};

template <class R>
inline constexpr std::string_view record_name = {};
template <>
inline constexpr std::string_view record_name<PeakInfo> = "PeakInfo";
template <>
inline constexpr std::string_view record_name<CalibrationCoefficients> = "CalibrationCoefficients";
template <>
inline constexpr std::string_view record_name<CalibrationSettings> = "CalibrationSettings";

/// An array of as many numbers is taken for the record's fields, and Empty for zeros, so that a script, which cannot
/// make records, can pass one.
template <class R>
requires(!record_name<R>.empty()) struct Native<R> {
    static constexpr DeclaredType declared{TypeKind::record, record_name<R>};
    static R from(const Value& value) {
        if (value.holds<Empty>()) return R{};
        if (const auto* array = value.get_if<Array>()) return std::get<R>(record_from_array(record_name<R>, *array));
        if (const auto* record = value.get_if<Record>())
            if (const R* wanted = std::get_if<R>(record)) return *wanted;
        raise_runtime_fault(error_number::type_mismatch,
                            value.kind_name() + " is no " + std::string(record_name<R>) + " record");
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
requires(!object_class_name<C>.empty()) struct Native<std::shared_ptr<C>> {
    static constexpr DeclaredType declared{TypeKind::object, object_class_name<C>};
    static std::shared_ptr<C> from(const Value& value) { return native_from<C>(value.as_object()); }
    static Value to(std::shared_ptr<C> object) { return make_object(std::move(object)); }
};

/// How a native result is declared: arrays of numbers and texts are returned as such, not inside a variant.
template <class T>
constexpr DeclaredType declared_result() {
    if constexpr (std::is_same_v<T, VariantArray<double>>) {
        return {TypeKind::real_array};
    } else if constexpr (std::is_same_v<T, VariantArray<std::string>>) {
        return {TypeKind::text_array};
    } else {
        return Native<T>::declared;
    }
}

}  // namespace korvane::automation
