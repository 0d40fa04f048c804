// Values between C and automation.
#pragma once

#include "automation/c/handles.h"

namespace korvane::automation::c {

/// A copy of what the value holds. Errors: 13 an unknown kind, 5 null where something is counted, 9 bounds that do not
/// fit, and those of handles.
Value value_from(const korvane_value& value);

/// Puts a value into the caller's, which is cleared first; what it points to is kept until its owner is freed.
void give(korvane_value& place, Value value);

/// Cells row by row as an array of two dimensions.
template <class T>
Array table_of(std::vector<T> cells, std::size_t columns) {
    const std::size_t rows = cells.size() / columns;
    return Array({{0, rows}, {0, columns}}, std::make_shared<const std::vector<T>>(std::move(cells)));
}

}  // namespace korvane::automation::c
