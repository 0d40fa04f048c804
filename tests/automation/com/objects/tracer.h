// A tracer of the acquisition software, for tests: it is on, and appends what it is told to a file.
#pragma once

#include <atomic>

#include "automation/com/com_basics.h"

namespace korvane::automation {

class TestTracer final : public IDispatch {
public:
    /// The file that KORVANE_TEST_TRACE names.
    TestTracer();
    virtual ~TestTracer() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* dispids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID dispid, REFIID, LCID, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                                     EXCEPINFO*, UINT*) override;

private:
    std::wstring path_;
    std::atomic<ULONG> references_{1};
};

}  // namespace korvane::automation
