// Somebody else's automation object, called through its IDispatch.
#pragma once

#include "automation/com/com_basics.h"
#include "korvane/automation.h"

namespace korvane::automation {

class DispatchObject final : public LateBound {
public:
    explicit DispatchObject(ComPointer<IDispatch> dispatch) : dispatch_(std::move(dispatch)) {}

    std::string class_name() const override;
    std::int32_t dispid_of(std::string_view member) const override;
    /// Arguments go by reference, so that the object may change them.
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override;

    IDispatch* dispatch() const noexcept { return dispatch_.get(); }

private:
    ComPointer<IDispatch> dispatch_;
};

/// A new object of a registered class; null where no class of this ProgID is registered. Error 429 naming the ProgID
/// where it is registered but cannot be made.
Object create_registered_object(const std::string& prog_id);

}  // namespace korvane::automation
