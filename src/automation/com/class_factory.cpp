#ifdef _WIN32

#include "automation/com/class_factory.h"

#include "automation/com/com_object.h"
#include "automation/com/error_mapping.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

class ClassFactory final : public IClassFactory {
public:
    explicit ClassFactory(const ClassDescription& description) : description_(description) { ModuleUse::add(); }
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
            const auto object = create_object(description_.prog_id());
            const auto made =
                ComPointer<IDispatch>::owned(make_com_object(std::static_pointer_cast<NativeObject>(object)));
            return made->QueryInterface(wanted, result);
        } catch (...) {
            return leave_error_object(error_in_flight(), guid_of(description_.interface_id));
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? ModuleUse::add() : ModuleUse::release();
        return S_OK;
    }

private:
    const ClassDescription& description_;
    std::atomic<ULONG> references_{0};
};

}  // namespace

HRESULT make_class_factory(REFCLSID class_id, REFIID wanted, void** result) noexcept {
    if (!result) return E_POINTER;
    *result = nullptr;
    try {
        for (const ClassDescription& description : class_descriptions()) {
            if (!description.create || !IsEqualGUID(class_id, guid_of(description.class_id))) continue;
            const auto factory = ComPointer<ClassFactory>::shared(new ClassFactory(description));
            return factory->QueryInterface(wanted, result);
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
