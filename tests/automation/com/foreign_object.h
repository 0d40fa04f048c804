// Somebody else's automation object, for tests.
#pragma once

#include "automation/com/com_basics.h"

namespace korvane::automation {

/// All but what it does; lives on the heap.
class ForeignObject : public Counted<IDispatch> {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }
};

}  // namespace korvane::automation
