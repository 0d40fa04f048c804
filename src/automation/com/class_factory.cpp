#ifdef _WIN32

#include "automation/com/class_factory.h"

#include "automation/class_description.h"
#include "automation/com/com_object.h"
#include "automation/com/error_mapping.h"
#include "automation/com/variant_conversion.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

class ClassFactory final : public IClassFactory {
public:
    ClassFactory(std::function<IDispatch*()> make, const GUID& interface_id)
        : make_(std::move(make)), interface_id_(interface_id) {
        ModuleUse::add();
    }
    virtual ~ClassFactory() { ModuleUse::release(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IClassFactory);
        *result = known ? this : nullptr;
        if (!known) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }

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
        lock ? ModuleUse::add() : ModuleUse::release();
        return S_OK;
    }

private:
    const std::function<IDispatch*()> make_;
    const GUID interface_id_;
    std::atomic<ULONG> references_{0};
};

}  // namespace

HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result) {
    return ComPointer<ClassFactory>::shared(new ClassFactory(std::move(make), interface_id))
        ->QueryInterface(wanted, result);
}

HRESULT make_class_factory(REFCLSID class_id, REFIID wanted, void** result) noexcept {
    if (!result) return E_POINTER;
    *result = nullptr;
    try {
        for (const ClassDescription& description : class_descriptions()) {
            if (!description.create || !IsEqualGUID(class_id, guid_of(description.class_id))) continue;
            return make_factory([&] { return dispatch_of_object(create_object(description.prog_id())); },
                                guid_of(description.interface_id), wanted, result);
        }
        return CLASS_E_CLASSNOTAVAILABLE;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

bool module_is_idle() noexcept {
    return ModuleUse::count() == 0;
}

}  // namespace korvane::automation

#endif
