#ifdef _WIN32

#include "automation/com/com_object.h"

#include <new>

#include "automation/com/variant_conversion.h"

namespace korvane::automation {

namespace {

class ClassFactory final : public Counted<IClassFactory> {
public:
    ClassFactory(std::function<IDispatch*()> make, const GUID& interface_id)
        : make_(std::move(make)), interface_id_(interface_id) {
        ++module_uses;
    }
    ~ClassFactory() override { --module_uses; }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        *result = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            return ComPointer<IDispatch>::owned(make_())->QueryInterface(wanted, result);
        } catch (...) {
            return leave_error_object(error_in_flight(), interface_id_);
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? ++module_uses : --module_uses;
        return S_OK;
    }

private:
    const std::function<IDispatch*()> make_;
    const GUID interface_id_;
};

}  // namespace

HRESULT STDMETHODCALLTYPE query_interface(ComObject* self, REFIID wanted, void** result) {
    if (!result) return E_POINTER;
    *result = nullptr;
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
        --module_uses;
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
    ++module_uses;
    return reinterpret_cast<IDispatch*>(made);
}

HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result) {
    return ComPointer<ClassFactory>::owned(new ClassFactory(std::move(make), interface_id))
        ->QueryInterface(wanted, result);
}

Object object_of_dispatch(IDispatch* dispatch) {
    if (!dispatch) return nullptr;
    // An object of this module is known by its first function.
    const auto* const own = reinterpret_cast<const ComObject*>(dispatch);
    if (own->vtable[0] == address_of(&query_interface)) return own->object;
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
