// Errors on their way out of and into the Windows interfaces.
#pragma once

#include "automation/com/com_basics.h"
#include "korvane/error.h"

namespace korvane::automation {

/// The code under which callers find a number again: 1 to 65535 travel in the control facility, negative numbers as
/// they are; any other would read as success, and is "invalid procedure call".
HRESULT code_of_number(std::int32_t number);
/// The number in a code.
std::int32_t number_of_code(HRESULT code);

/// The exception being handled, as an error: nothing may leave a border but a code.
Error error_in_flight() noexcept;

/// Fills what a caller of Invoke gets; returns DISP_E_EXCEPTION, or the code itself where the caller wants no details.
HRESULT report_exception(const Error& error, EXCEPINFO* details);
/// Leaves the error object of the thread for a caller of the vtable; returns the code.
HRESULT leave_error_object(const Error& error, const GUID& interface_id);

/// The error that a foreign object reported. `what` names the call for errors without a text.
Error error_of_call(HRESULT code, EXCEPINFO& details, const std::string& what);

}  // namespace korvane::automation
