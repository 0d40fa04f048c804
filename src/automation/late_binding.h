// The call itself, once a member is found: placing arguments, filling in defaults, calling.
#pragma once

#include <span>

#include "automation/class_description.h"

namespace korvane::automation {

/// Calls with one value a parameter; `Missing` takes the default. Error 449 naming a required parameter left out.
Value call_member(const Member& member, void* target, std::span<Value> placed);

}  // namespace korvane::automation
