// A member called both ways that Windows offers, with the same arguments.
#pragma once

#include <string>
#include <vector>

#include "automation/com/com_basics.h"
#include "automation/member.h"

namespace korvane::automation {

/// What a call left behind: "Success" or the error, the result, and the arguments by reference.
using CallTexts = std::vector<std::string>;

/// By IDispatch::Invoke. Arguments by reference go as variables of the declared type.
CallTexts call_by_invoke(IDispatch& object, const Member& member, const std::vector<Value>& arguments);

/// By the slot of the vtable that the type library names for the function with this index.
CallTexts call_by_vtable(IDispatch& object, std::size_t index, const Member& member,
                         const std::vector<Value>& arguments);

/// By the same slot with a null pointer in the place of every argument and of the result that is one.
HRESULT call_with_null_pointers(IDispatch& object, std::size_t index, const Member& member);

}  // namespace korvane::automation
