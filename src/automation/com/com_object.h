// Automation objects on Windows: ours as callers see them, a dual interface laid out by hand and ISupportErrorInfo, and
// somebody else's.
#pragma once

#include <atomic>
#include <functional>

#include "automation/class_description.h"
#include "automation/com/com_basics.h"
#include "automation/native_object.h"

namespace korvane::automation {

/// Objects and locks that keep the module loaded.
inline std::atomic<LONG> module_uses{0};

/// A new interface to an object, counted once.
IDispatch* make_com_object(std::shared_ptr<NativeObject> object);

/// A factory of the objects that `make` makes, each counted once. Their errors bear the interface's identifier.
HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result);

/// Slots of a vtable before the members'.
inline constexpr std::size_t common_slot_count = 7;

/// Somebody else's automation object, called through its IDispatch.
class DispatchObject final : public LateBound {
public:
    explicit DispatchObject(ComPointer<IDispatch> dispatch) : dispatch_(std::move(dispatch)) {}

    std::string class_name() const override;
    std::int32_t dispid_of(std::string_view member) const override;
    /// Arguments go by reference, so that the object may change them.
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override;

    IDispatch* dispatch() const noexcept { return dispatch_.Get(); }

private:
    ComPointer<IDispatch> dispatch_;
};

/// A new object of a registered class; null where no class of this ProgID is registered. Error 429 naming the ProgID
/// where it is registered but cannot be made.
Object create_registered_object(const std::string& prog_id);

}  // namespace korvane::automation
