// The call itself, once a member is found: the same for late binding, IDispatch::Invoke and the vtable.
#pragma once

#include <cstddef>

#include "automation/class_description.h"

namespace korvane::automation {

/// The arguments of one call, where its caller has them, by the places of the parameters.
class CallerArguments {
public:
    virtual ~CallerArguments() = default;
    /// Whether the caller gives the argument; one that is left out has its default and no place to go back to.
    virtual bool given(std::size_t place) const = 0;
    virtual Value load(std::size_t place) const = 0;
    /// Puts what the member made of the argument into the caller's variable, where it is one.
    virtual void store(std::size_t place, Value changed) = 0;
};

/// Binds the arguments, calls, and hands back those that the member changes by reference; where it raises, those that
/// it had changed by then. Errors, besides the member's own: `ArgumentError` with the conversion's number, or 449 for a
/// required argument left out.
Value call_member(const Member& member, void* target, CallerArguments& caller);

/// The platform with a clock around whose events the calls in progress on the thread exchange their flags with their
/// callers: what an event handler sets there (`bUserHasCancelledRampInGUI`), the member sees.
Platform with_shared_flags(Platform platform);

}  // namespace korvane::automation
