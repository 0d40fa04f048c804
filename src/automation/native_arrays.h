// Arrays between native members and automation. Elements of the same type are shared, not copied.
#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "korvane/automation_value.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/variant_array.h"

namespace korvane::automation {

/// Any whole number becomes a 32-bit one, what is neither number nor text its number.
InstrumentValue instrument_value_from(const Value& value);
Value value_of(const InstrumentValue& item);

/// The array type that holds native elements of type T on the automation side.
template <class T>
using StoredElement =
    std::conditional_t<std::is_same_v<T, InstrumentValue>, Value,
                       std::conditional_t<std::is_same_v<T, PeakListObject>, Object,
                                          std::conditional_t<std::is_same_v<T, PeakInfo>, Record, T>>>;

/// Empty gives the empty array. Error 13 for what is no array, 9 for one that has not one dimension, and the errors of
/// the elements' conversion.
template <class T>
VariantArray<T> array_from(const Value& value);
/// Error 13 for what is no array; 9 for one that has not two dimensions or begins above index 0. Elements below index 0
/// are passed over, as routines count from 0.
template <class T>
VariantMatrix<T> matrix_from(const Value& value);

template <class T>
Value value_of(const VariantArray<T>& array);
template <class T>
Value value_of(const VariantMatrix<T>& matrix);

}  // namespace korvane::automation
