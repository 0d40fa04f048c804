// Somebody else's automation object, for tests.
#pragma once

#include <atomic>

#include "automation/com/com_basics.h"

namespace korvane::automation {

/// All but what it does; lives on the heap.
class ForeignObject : public IDispatch {
public:
    virtual ~ForeignObject() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IDispatch);
        *result = known ? this : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }

    std::atomic<ULONG> references{1};
};

}  // namespace korvane::automation
