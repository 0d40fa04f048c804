#include "tracer.h"

#include <cstdio>

#include "platform/files.h"

namespace korvane::automation {

namespace {
// Dispids are the places here, from 1.
constexpr const wchar_t* members[] = {L"mnameOfModule", L"mtraceFlag", L"Entry", L"Exit", L"TracePrint"};
constexpr DISPID trace_flag = 2;

std::string text_of_argument(VARIANT& argument) {
    Variant text;
    if (FAILED(VariantCopyInd(text.get(), &argument))) return "?";
    if (FAILED(VariantChangeType(text.get(), text.get(), 0, VT_BSTR))) return "?";
    return text_of(text->bstrVal);
}
}  // namespace

TestTracer::TestTracer() : path_(utf16_from_utf8(environment_text("KORVANE_TEST_TRACE"))) {}

HRESULT TestTracer::QueryInterface(REFIID wanted, void** result) {
    const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IDispatch);
    *result = known ? this : nullptr;
    if (known) AddRef();
    return known ? S_OK : E_NOINTERFACE;
}

ULONG TestTracer::Release() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
}

HRESULT TestTracer::GetTypeInfoCount(UINT* count) {
    *count = 0;
    return S_OK;
}

HRESULT TestTracer::GetIDsOfNames(REFIID, LPOLESTR* names, UINT, LCID, DISPID* dispids) {
    for (DISPID place = 0; place < static_cast<DISPID>(std::size(members)); ++place)
        if (lstrcmpiW(members[place], names[0]) == 0) {
            dispids[0] = place + 1;
            return S_OK;
        }
    return DISP_E_UNKNOWNNAME;
}

HRESULT TestTracer::Invoke(DISPID dispid, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT* result, EXCEPINFO*,
                           UINT*) {
    if (dispid < 1 || dispid > static_cast<DISPID>(std::size(members))) return DISP_E_MEMBERNOTFOUND;
    if (dispid == trace_flag && result) {
        result->vt = VT_BOOL;
        result->boolVal = VARIANT_TRUE;
    }
    std::string line = utf8_from_utf16(members[dispid - 1]);
    for (UINT place = parameters->cArgs; place-- > 0;) line += "|" + text_of_argument(parameters->rgvarg[place]);
    if (FILE* const file = _wfopen(path_.c_str(), L"a")) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
    return S_OK;
}

}  // namespace korvane::automation
