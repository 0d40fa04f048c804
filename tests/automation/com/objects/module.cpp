// Somebody else's automation objects, for tests: an instrument layer, "KorvaneTest.Layer", and the tracer
// "quillkit.trace.1".
#include <algorithm>
#include <fstream>

#include "automation/com/com_object.h"
#include "foreign_object.h"
#include "layer/test_layer.h"
#include "platform/files.h"

namespace korvane::automation {
namespace {

IDispatch* make_layer() {
    return make_com_object(
        std::static_pointer_cast<NativeObject>(make_object<InstrumentLayer>(std::make_shared<TestLayer>())));
}

/// Written as in a typed language: `Entry` and `Exit` take a text and a 32-bit integer by reference and nothing else.
/// It is on, and appends what it is told to the file that KORVANE_TEST_TRACE names.
class TypedTracer final : public ForeignObject {
public:
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT, LCID, DISPID* dispids) override {
        const auto known = std::ranges::find(members, utf8_from_utf16(*names));
        *dispids = static_cast<DISPID>(known - std::begin(members));
        return known == std::end(members) ? DISP_E_UNKNOWNNAME : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID dispid, REFIID, LCID, WORD, DISPPARAMS* given, VARIANT* result, EXCEPINFO*,
                                     UINT*) override {
        const std::string member(members[dispid]);
        std::string line = member;
        for (UINT place = given->cArgs; place-- > 0;) {
            VARIANT& argument = given->rgvarg[place];
            const VARTYPE declared = (place == 0 && given->cArgs > 1 ? VT_I4 : VT_BSTR) | VT_BYREF;
            if (member.starts_with("E") && argument.vt != declared) return DISP_E_TYPEMISMATCH;
            line += "|" + value_of_variant(argument).as_text();
        }
        std::ofstream(path_from_utf8(environment_text("KORVANE_TEST_TRACE")), std::ios::app | std::ios::binary)
            << line << '\n';
        if (result) fill_variant(true, *result);
        return S_OK;
    }

private:
    static constexpr std::string_view members[]{"mnameOfModule", "mtraceFlag", "Entry", "Exit", "TracePrint"};
};

}  // namespace
}  // namespace korvane::automation

using namespace korvane::automation;

extern "C" {

// By the class identifiers that scripts/run.sh registers: one for the layer, the other for the tracer.
HRESULT WINAPI DllGetClassObject(REFCLSID class_id, REFIID wanted, void** result) {
    const bool layer = IsEqualGUID(class_id, guid_of("0C0A7B5E-31F4-4C0B-9E0E-6D2C8F5A9B11"));
    const auto make = [layer]() -> IDispatch* { return layer ? make_layer() : new TypedTracer; };
    return make_factory(make, GUID_NULL, wanted, result);
}

HRESULT WINAPI DllCanUnloadNow() {
    return S_FALSE;
}
}
