// The arguments of a call as VARIANTs: those that Invoke gets, and references to what lies on a vtable call's stack.
#pragma once

#include "automation/com/variant_conversion.h"
#include "automation/member.h"

namespace korvane::automation {

/// By the places of the parameters; null where an argument is left out.
class VariantArguments : public CallFrame {
public:
    VARIANT* variants[most_parameters] = {};

    bool given(std::size_t place) const override { return variants[place] != nullptr; }
    Value load(std::size_t place) const override { return value_of_variant(*variants[place]); }
    void store(std::size_t place, Value changed) override { store_into_variable(changed, *variants[place]); }
};

}  // namespace korvane::automation
