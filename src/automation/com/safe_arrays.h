// Arrays between automation on Windows and the portable ones.
#pragma once

#include "automation/com/com_basics.h"
#include "korvane/automation_value.h"

namespace korvane::automation {

/// The array's elements and bounds; an array that was never dimensioned has rank 0. Error 13 for kinds of elements that
/// automation values do not have.
Array array_of_safe_array(SAFEARRAY* source, VARTYPE kind);

/// A new array of the element type that suits the elements; objects go into VARIANTs, because scripts can read no
/// array of anything else.
SAFEARRAY* safe_array_of(const Array& array, VARTYPE& kind);
/// A new array of a given element type. Error 13 where an element does not convert.
SAFEARRAY* safe_array_of(const Array& array, const VARTYPE kind, IRecordInfo* record_info);

}  // namespace korvane::automation
