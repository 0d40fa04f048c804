#include "automation/native_arrays.h"

#include <algorithm>

#include "automation/native_types.h"

namespace korvane::automation {

namespace {

template <class T>
constexpr bool is_shared = std::is_same_v<T, StoredElement<T>>;

/// An element that is stored as what it is, or as what automation has for it.
template <class T>
StoredElement<T> stored(const T& element) {
    if constexpr (std::is_same_v<T, PeakListObject>) {
        return make_object(element);
    } else if constexpr (std::is_same_v<T, InstrumentValue>) {
        return value_of(element);
    } else {
        return element;
    }
}

void require_rank(const Array& array, std::size_t rank) {
    if (array.rank() != rank)
        raise_runtime_fault(error_number::subscript, "an array of rank " + std::to_string(array.rank()) +
                                                         " in the place of one of rank " + std::to_string(rank));
}

}  // namespace

InstrumentValue instrument_value_from(const Value& value) {
    if (value.holds<Empty>()) return std::monostate{};
    if (const auto* text = value.get_if<std::string>()) return *text;
    if (value.holds<bool>() || value.holds<std::int16_t>() || value.holds<std::int32_t>()) return value.as_int32();
    return value.as_double();
}

Value value_of(const InstrumentValue& item) {
    if (const auto* whole = std::get_if<std::int32_t>(&item)) return *whole;
    if (const auto* number = std::get_if<double>(&item)) return *number;
    if (const auto* text = std::get_if<std::string>(&item)) return *text;
    return Empty{};
}

template <class T>
VariantArray<T> array_from(const Value& value) {
    if (value.holds<Empty>()) return {};
    const Array& array = value.as_array();
    require_rank(array, 1);
    const std::int32_t lower = array.bounds().front().lower;
    if constexpr (is_shared<T>) {
        if (const auto* same = std::get_if<Array::Elements<T>>(&array.storage()); same && *same)
            return VariantArray<T>(*same, lower);
    }
    std::vector<T> elements;
    elements.reserve(array.size());
    std::visit(
        [&elements](const auto& stored) {
            if (!stored) return;
            for (const auto& element : *stored) elements.push_back(Native<T>::from(element));
        },
        array.storage());
    return VariantArray<T>(std::move(elements), lower);
}

template <class T>
VariantMatrix<T> matrix_from(const Value& value) {
    const Array& array = value.as_array();
    require_rank(array, 2);
    std::size_t counts[2], skipped[2];
    for (std::size_t dimension = 0; dimension < 2; ++dimension) {
        const auto [lower, count] = array.bounds()[dimension];
        if (lower > 0) raise_runtime_fault(error_number::subscript, "index 0");
        skipped[dimension] = std::min(static_cast<std::size_t>(-static_cast<std::int64_t>(lower)), count);
        counts[dimension] = count - skipped[dimension];
    }
    VariantMatrix<T> matrix(counts[0], counts[1]);
    const std::size_t columns = array.bounds()[1].count;
    for (std::size_t row = 0; row < counts[0]; ++row)
        for (std::size_t column = 0; column < counts[1]; ++column)
            matrix.at(row, column) = Native<T>::from(array.element((row + skipped[0]) * columns + column + skipped[1]));
    return matrix;
}

template <class T>
Value value_of(const VariantArray<T>& array) {
    if (array.is_empty()) return Empty{};
    std::vector<ArrayBound> bounds{{array.lower_bound(), array.size()}};
    if constexpr (is_shared<T>) {
        return Array(std::move(bounds), array.storage());
    } else {
        auto elements = std::make_shared<std::vector<StoredElement<T>>>();
        elements->reserve(array.size());
        for (const T& element : array.elements()) elements->push_back(stored(element));
        return Array(std::move(bounds), Array::Elements<StoredElement<T>>(std::move(elements)));
    }
}

template <class T>
Value value_of(const VariantMatrix<T>& matrix) {
    auto elements = std::make_shared<std::vector<StoredElement<T>>>();
    elements->reserve(matrix.rows() * matrix.columns());
    for (std::size_t row = 0; row < matrix.rows(); ++row)
        for (std::size_t column = 0; column < matrix.columns(); ++column)
            elements->push_back(stored(matrix.at(row, column)));
    return Array({{0, matrix.rows()}, {0, matrix.columns()}}, Array::Elements<StoredElement<T>>(std::move(elements)));
}

template VariantArray<double> array_from(const Value&);
template VariantArray<std::int32_t> array_from(const Value&);
template VariantArray<std::string> array_from(const Value&);
template VariantArray<InstrumentValue> array_from(const Value&);
template VariantMatrix<double> matrix_from(const Value&);
template Value value_of(const VariantArray<double>&);
template Value value_of(const VariantArray<std::int32_t>&);
template Value value_of(const VariantArray<std::string>&);
template Value value_of(const VariantArray<InstrumentValue>&);
template Value value_of(const VariantArray<PeakListObject>&);
template Value value_of(const VariantMatrix<double>&);
template Value value_of(const VariantMatrix<PeakInfo>&);

}  // namespace korvane::automation
