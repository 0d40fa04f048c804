#ifdef _WIN32

#include "automation/com/com_object.h"

#include <new>

#include "automation/com/dispatch_object.h"
#include "automation/com/record_info.h"
#include "automation/com/variant_conversion.h"

namespace korvane::automation {

std::atomic<LONG> ModuleUse::count_{0};

namespace {

/// Different in every module and process: nobody else can mean these objects.
const GUID& private_id() {
    static const GUID id = [] {
        GUID made{};
        CoCreateGuid(&made);
        return made;
    }();
    return id;
}

}  // namespace

HRESULT STDMETHODCALLTYPE query_interface(ComObject* self, REFIID wanted, void** result) {
    if (!result) return E_POINTER;
    *result = nullptr;
    if (IsEqualGUID(wanted, private_id())) {
        *result = self;  // uncounted; see native_object_of
        return S_OK;
    }
    const bool dual = !IsEqualGUID(self->interface_id, GUID_NULL) && IsEqualGUID(wanted, self->interface_id);
    if (dual || IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IDispatch)) {
        *result = self;
    } else if (IsEqualGUID(wanted, IID_ISupportErrorInfo)) {
        *result = &self->error_support;
    } else {
        return E_NOINTERFACE;
    }
    add_reference(self);
    return S_OK;
}

ULONG STDMETHODCALLTYPE add_reference(ComObject* self) {
    return ++self->references;
}

ULONG STDMETHODCALLTYPE release_reference(ComObject* self) {
    const ULONG left = --self->references;
    if (left == 0) {
        delete self;
        ModuleUse::release();
    }
    return left;
}

HRESULT ErrorSupport::QueryInterface(REFIID wanted, void** result) {
    return query_interface(&object_, wanted, result);
}
ULONG ErrorSupport::AddRef() {
    return add_reference(&object_);
}
ULONG ErrorSupport::Release() {
    return release_reference(&object_);
}
HRESULT ErrorSupport::InterfaceSupportsErrorInfo(REFIID asked) {
    return IsEqualGUID(asked, object_.interface_id) || IsEqualGUID(asked, IID_IDispatch) ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE get_type_info_count(ComObject* self, UINT* count) {
    if (!count) return E_POINTER;
    *count = IsEqualGUID(self->interface_id, GUID_NULL) ? 0 : 1;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE get_type_info(ComObject* self, UINT index, LCID, ITypeInfo** result) {
    if (!result) return E_POINTER;
    *result = nullptr;
    if (index != 0 || IsEqualGUID(self->interface_id, GUID_NULL)) return DISP_E_BADINDEX;
    try {
        return type_library().GetTypeInfoOfGuid(self->interface_id, result);
    } catch (...) {
        return TYPE_E_CANTLOADLIBRARY;
    }
}

IDispatch* make_com_object(std::shared_ptr<NativeObject> object) {
    const ClassDescription& description = object->description();
    const GUID interface_id = description.interface_id.empty() ? GUID_NULL : guid_of(description.interface_id);
    auto* const made = new ComObject{vtable_of(description), std::move(object), interface_id};
    ModuleUse::add();
    return reinterpret_cast<IDispatch*>(made);
}

std::shared_ptr<NativeObject> native_object_of(IUnknown& unknown) {
    ComObject* behind = nullptr;
    if (FAILED(unknown.QueryInterface(private_id(), reinterpret_cast<void**>(&behind))) || !behind) return nullptr;
    return behind->object;
}

Object object_of_dispatch(IDispatch* dispatch) {
    if (!dispatch) return nullptr;
    if (auto native = native_object_of(*dispatch)) return native;
    return std::make_shared<DispatchObject>(ComPointer<IDispatch>::shared(dispatch));
}

IDispatch* dispatch_of_object(const Object& object) {
    if (!object) return nullptr;
    if (auto native = std::dynamic_pointer_cast<NativeObject>(object)) return make_com_object(std::move(native));
    const auto* const foreign = dynamic_cast<const DispatchObject*>(object.get());
    if (!foreign) raise_runtime_fault(error_number::type_mismatch, "an object " + object->class_name());
    foreign->dispatch()->AddRef();
    return foreign->dispatch();
}

}  // namespace korvane::automation

#endif
