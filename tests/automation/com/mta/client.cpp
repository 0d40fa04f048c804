// A client in the multithreaded apartment: its calls cross to the server's apartment by proxies that the system makes
// of the registered type library. Prints DONE, or what went wrong.
#include <cstdio>

#include "automation/class_description.h"
#include "automation/com/com_basics.h"
#include "automation/com/error_mapping.h"

namespace korvane::automation {
namespace {

ComPointer<IDispatch> create(const char* class_name, const GUID& wanted) {
    CLSID class_id;
    require(CLSIDFromProgID(utf16_from_utf8(find_class(class_name)->prog_id()).c_str(), &class_id), "Finding a class");
    ComPointer<IDispatch> object;
    require(CoCreateInstance(class_id, nullptr, CLSCTX_INPROC_SERVER, wanted, reinterpret_cast<void**>(object.put())),
            "Making an object");
    return object;
}

HRESULT invoke(IDispatch& object, const wchar_t* name, std::vector<VARIANT> reversed_arguments, VARIANT& result,
               EXCEPINFO& details) {
    auto names = const_cast<LPOLESTR>(name);
    DISPID dispid = 0;
    require(object.GetIDsOfNames(IID_NULL, &names, 1, 0, &dispid), "Asking for a name");
    DISPPARAMS parameters{reversed_arguments.data(), nullptr, static_cast<UINT>(reversed_arguments.size()), 0};
    return object.Invoke(dispid, IID_NULL, 0, DISPATCH_METHOD, &parameters, &result, &details, nullptr);
}

int fail(const char* what, long code) {
    std::printf("FAIL %s: %ld\n", what, code);
    return 1;
}

int run() {
    require(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "Entering the apartment");
    const auto parser = create("SpectrumParser", guid_of(find_class("SpectrumParser")->interface_id));
    VARIANT kind{}, mass{};
    kind.vt = VT_I4;
    kind.lVal = 2;
    mass.vt = VT_R8;
    mass.dblVal = 294.938932;
    Variant result;
    EXCEPINFO details{};
    HRESULT code = invoke(*parser.get(), L"GetPeakAttribute", {mass, kind}, *result, details);
    if (code != S_OK) return fail("measuring by proxy", code);
    if (result->vt != VT_R8 || std::abs(result->dblVal - mass.dblVal) > 0.001) return fail("the mass", result->vt);

    // A reference is carried there and back.
    Variant start, text;
    VARIANT to_start{}, to_others{};
    to_start.vt = to_others.vt = VT_BYREF | VT_VARIANT;
    to_start.pvarVal = start.get();
    to_others.pvarVal = text.get();
    code = invoke(*parser.get(), L"GetNewSpectrumAndVerifyDataIsPopulated",
                  {to_others, to_start, to_others, to_others, to_others}, *result, details);
    if (code != S_OK || start->vt != VT_R8 || start->dblVal < 1000) return fail("a reference by proxy", code);

    const auto preferences = create("clsTunePrefsXML", IID_IDispatch);
    VARIANT name{};
    const Bstr unknown("NoSuchPreference");
    name.vt = VT_BSTR;
    name.bstrVal = unknown.get();
    code = invoke(*preferences.get(), L"GetTunePreference", {name}, *result, details);
    if (code != DISP_E_EXCEPTION || details.scode != -904) return fail("an error by proxy", details.scode);
    std::puts("DONE");
    return 0;
}

}  // namespace
}  // namespace korvane::automation

int main() try { return korvane::automation::run(); } catch (const korvane::Error& error) {
    std::printf("FAIL %s\n", error.what());
    return 1;
}
