// What a VARIANT holds, as a text: kind and content, read with the system's own functions.
#pragma once

#include <string>

#include "automation/com/com_basics.h"

namespace korvane::automation {

/// "R8 1.5", "ARRAY R8 [0..1] {1, 2}", "RECORD PeakInfo {pkApexX = R8 0, ...}", "object _PeakList". A reference is
/// followed and reads as what it refers to.
std::string text_of_variant(const VARIANT& variant);

/// "Success", or the number, source and description that an Invoke reported; frees them.
std::string text_of_outcome(HRESULT code, EXCEPINFO& details);
/// The same for a call of the vtable, from the thread's error object.
std::string text_of_outcome(HRESULT code);

}  // namespace korvane::automation
