// For every type of a native signature: how it is declared, made of a value, and turned into one. The one place where
// native members and automation meet.
#pragma once

#include <algorithm>
#include <iterator>
#include <optional>

#include "automation/native_object.h"
#include "automation/records.h"

namespace korvane::automation {

/// A native type that values convert to by a function of their own, and that they hold as it is or as `Stored`.
template <class T, TypeKind kind, auto convert, class Stored = T>
struct Held {
    static constexpr DeclaredType declared{kind};
    static T from(const Value& value) { return (value.*convert)(); }
    static Value to(T value) { return Stored(std::move(value)); }
};
/// What a variant of kinds that values have holds.
template <class... Kinds>
Value value_of(const std::variant<Kinds...>& content) {
    return std::visit([](const auto& each) { return Value(each); }, content);
}
struct AsVariant {
    static constexpr DeclaredType declared{TypeKind::variant};
};

/// `declared`, `from(const Value&)` and `to(T)`. A type that automation does not know has no specialisation.
template <class T>
struct Native;

template <>
struct Native<void> {
    static constexpr DeclaredType declared{TypeKind::none};
};
template <>
struct Native<bool> : Held<bool, TypeKind::boolean, &Value::as_boolean> {};
template <>
struct Native<std::int16_t> : Held<std::int16_t, TypeKind::long_integer, &Value::as_int16, std::int32_t> {};
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
struct Native<Value> : AsVariant {
    static Value from(const Value& value) { return value; }
    static Value to(Value value) { return value; }
};

/// Any whole number becomes a 32-bit one, what is neither number nor text its number.
template <>
struct Native<InstrumentValue> : AsVariant {
    static InstrumentValue from(const Value& value) {
        if (value.holds<Empty>()) return Empty{};
        if (const auto* text = value.get_if<std::string>()) return *text;
        if (value.holds<bool>() || value.holds<std::int16_t>() || value.holds<std::int32_t>()) return value.as_int32();
        return value.as_double();
    }
    static Value to(const InstrumentValue& item) { return value_of(item); }
};

/// The kind of the value is the type in which a setpoint is written.
template <>
struct Native<SetpointValue> : AsVariant {
    static SetpointValue from(const Value& value) {
        if (value.holds<std::int32_t>() || value.holds<std::int16_t>()) return value.as_int32();
        return value.as_double();
    }
    static Value to(const SetpointValue& value) { return value_of(value); }
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
        if (const auto* array = value.get_if<Array>())
            return std::get<R>(record_from_array(*find_record(type_name<R>), *array));
        if (const auto* record = value.get_if<Record>())
            if (const R* wanted = std::get_if<R>(record)) return *wanted;
        raise_runtime_fault(error_number::type_mismatch, value.kind_name(), " is no ", type_name<R>, " record");
    }
    static Value to(const R& value) { return value; }
};

template <ObjectClass C>
struct Native<C> {
    static constexpr DeclaredType declared{TypeKind::object, type_name<C>};
};
template <ObjectClass C>
struct Native<std::shared_ptr<C>> : Native<C> {
    static std::shared_ptr<C> from(const Value& value) { return native_from<C>(value.as_object()); }
    static Value to(std::shared_ptr<C> object) { return make_object(std::move(object)); }
};
template <ObjectClass C>
struct Native<std::unique_ptr<C>> : Native<std::shared_ptr<C>> {};

namespace detail {

template <class T>
inline constexpr bool is_element = alternative_of<Array::Elements<T>, Array::Storage>;

/// An element as arrays store it: as itself, as a record or an object, or as any value.
template <class T>
auto stored(const T& element) {
    if constexpr (is_element<T>) {
        return element;
    } else if constexpr (alternative_of<T, Record>) {
        return Record(element);
    } else if constexpr (std::is_same_v<T, InstrumentValue>) {
        return Native<T>::to(element);
    } else {
        return make_object(element);
    }
}

/// Error 13 for what is no array, 9 for one of another number of dimensions.
inline const Array& array_of_rank(const Value& value, std::size_t rank) {
    const Array& array = value.as_array();
    if (array.rank() == rank) return array;
    raise_runtime_fault(error_number::subscript, "an array of rank ", array.rank(), " in the place of one of rank ",
                        rank);
}

}  // namespace detail

/// Elements of the same type are shared, not copied. Empty is the empty array.
template <class T>
struct Native<VariantArray<T>> : AsVariant {
    static VariantArray<T> from(const Value& value) {
        if (value.holds<Empty>()) return {};
        const Array& array = detail::array_of_rank(value, 1);
        const std::int32_t lower = array.bounds().front().lower;
        if constexpr (detail::is_element<T>)
            if (const auto* same = std::get_if<Array::Elements<T>>(&array.storage()); same && *same)
                return VariantArray<T>(*same, lower);
        std::vector<T> elements;
        elements.reserve(array.size());
        for (std::size_t place = 0; place < array.size(); ++place)
            elements.push_back(Native<T>::from(array.element(place)));
        return VariantArray<T>(std::move(elements), lower);
    }
    static Value to(const VariantArray<T>& array) {
        if (array.is_empty()) return Empty{};
        if constexpr (detail::is_element<T>) {
            return Array({{array.lower_bound(), array.size()}}, array.storage());
        } else {
            std::vector<decltype(detail::stored(std::declval<T>()))> elements;
            std::ranges::transform(array.elements(), std::back_inserter(elements), detail::stored<T>);
            return Array(std::move(elements), array.lower_bound());
        }
    }
};
/// Left out is not the same as Empty.
template <class T>
struct Native<std::optional<VariantArray<T>>> : AsVariant {
    static std::optional<VariantArray<T>> from(const Value& value) { return Native<VariantArray<T>>::from(value); }
};
template <class T>
struct Native<std::vector<T>> : AsVariant {
    static std::vector<T> from(const Value& value) {
        const auto array = Native<VariantArray<T>>::from(value);
        return {array.elements().begin(), array.elements().end()};
    }
    static Value to(std::vector<T> elements) { return Array(std::move(elements)); }
};

/// An array that begins above index 0 is error 9. Elements below index 0 are passed over, as routines count from 0.
template <class T>
struct Native<VariantMatrix<T>> : AsVariant {
    static VariantMatrix<T> from(const Value& value) {
        const Array& array = detail::array_of_rank(value, 2);
        const std::size_t columns = array.bounds()[1].count;
        const auto below_0 = [](const ArrayBound& bound) {
            if (bound.lower > 0) raise_runtime_fault(error_number::subscript, "index 0");
            return std::min(static_cast<std::size_t>(-static_cast<std::int64_t>(bound.lower)), bound.count);
        };
        const std::size_t first_row = below_0(array.bounds()[0]), first_column = below_0(array.bounds()[1]);
        VariantMatrix<T> matrix(array.bounds()[0].count - first_row, columns - first_column);
        for (std::size_t row = 0; row < matrix.rows(); ++row)
            for (std::size_t column = 0; column < matrix.columns(); ++column)
                matrix.at(row, column) =
                    Native<T>::from(array.element((first_row + row) * columns + first_column + column));
        return matrix;
    }
    static Value to(const VariantMatrix<T>& matrix) {
        std::vector<decltype(detail::stored(std::declval<T>()))> elements;
        for (std::size_t row = 0; row < matrix.rows(); ++row)
            for (std::size_t column = 0; column < matrix.columns(); ++column)
                elements.push_back(detail::stored(matrix.at(row, column)));
        return Array({{0, matrix.rows()}, {0, matrix.columns()}},
                     std::make_shared<const decltype(elements)>(std::move(elements)));
    }
};

/// Cells row by row as an array of two dimensions.
template <class T>
Array table_of(std::vector<T> cells, std::size_t columns) {
    const std::size_t rows = cells.size() / columns;
    return Array({{0, rows}, {0, columns}}, std::make_shared<const std::vector<T>>(std::move(cells)));
}
/// Two columns: names and values.
template <>
struct Native<std::vector<MetaItem>> : AsVariant {
    static std::vector<MetaItem> from(const Value& value);
    static Value to(const std::vector<MetaItem>& items);
};

/// How a native result is declared: arrays of numbers and texts are returned as such, not inside a variant.
template <class T>
constexpr DeclaredType declared_result() {
    if (std::is_same_v<T, VariantArray<double>>) return {TypeKind::real_array};
    if (std::is_same_v<T, VariantArray<std::string>>) return {TypeKind::text_array};
    return Native<T>::declared;
}

}  // namespace korvane::automation
