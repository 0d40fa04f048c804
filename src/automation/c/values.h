// Values between C and automation.
#pragma once

#include "automation/c/handles.h"

namespace korvane::automation::c {

/// A copy of what the value holds. Errors: 13 an unknown kind, 5 null where something is counted, 9 bounds that do not
/// fit, and those of handles.
Value value_from(const korvane_value& value);

/// Puts a value into the caller's, which is cleared first; what it points to is kept until its owner is freed.
void give(korvane_value& place, Value value);

}  // namespace korvane::automation::c
