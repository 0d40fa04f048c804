// Automation objects on Windows: ours as callers see them, a dual interface laid out by hand and ISupportErrorInfo, and
// somebody else's.
#pragma once

#include <atomic>
#include <functional>

#include "automation/class_description.h"
#include "automation/com/com_basics.h"
#include "automation/native_object.h"

namespace korvane::automation {

struct ComObject;

/// The second interface of an object, which counts for it.
class ErrorSupport final : public ISupportErrorInfo {
public:
    explicit ErrorSupport(ComObject& object) : object_(object) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID asked) override;

private:
    ComObject& object_;
};

/// What is behind every interface pointer. The first member is the address of the vtable, as callers expect.
struct ComObject {
    const void* const* vtable;
    std::shared_ptr<NativeObject> object;
    GUID interface_id;  ///< of the dual interface; all zeros for a class without one
    std::atomic<ULONG> references = 1;
    ErrorSupport error_support{*this};

    const ClassDescription& description() const { return object->description(); }
};

/// Objects and locks that keep the module loaded.
inline std::atomic<LONG> module_uses{0};

/// A new interface to an object, counted once.
IDispatch* make_com_object(std::shared_ptr<NativeObject> object);

/// A factory of the objects that `make` makes, each counted once. Their errors bear the interface's identifier.
HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result);

/// A function as a slot of a vtable.
template <class Function>
const void* address_of(Function* function) {
    return reinterpret_cast<const void*>(function);
}

// The common slots, in the order of the vtable.
HRESULT STDMETHODCALLTYPE query_interface(ComObject* self, REFIID wanted, void** result);
ULONG STDMETHODCALLTYPE add_reference(ComObject* self);
ULONG STDMETHODCALLTYPE release_reference(ComObject* self);
HRESULT STDMETHODCALLTYPE get_type_info_count(ComObject* self, UINT* count);
HRESULT STDMETHODCALLTYPE get_type_info(ComObject* self, UINT index, LCID locale, ITypeInfo** result);
HRESULT STDMETHODCALLTYPE get_ids_of_names(ComObject* self, REFIID reserved, LPOLESTR* names, UINT count, LCID locale,
                                           DISPID* dispids);
HRESULT STDMETHODCALLTYPE invoke_member(ComObject* self, DISPID dispid, REFIID reserved, LCID locale, WORD flags,
                                        DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* details,
                                        UINT* wrong_argument);

inline constexpr std::size_t common_slot_count = 7;
/// The vtable of a class: the common slots, then its members in the order of its table. The common slots alone for a
/// class without a dual interface.
const void* const* vtable_of(const ClassDescription& description);

/// Somebody else's automation object, called through its IDispatch.
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
