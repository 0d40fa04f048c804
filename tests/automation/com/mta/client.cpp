// A client in the multithreaded apartment: its calls cross to the server's apartment by proxies that the system makes
// of the registered type library. Prints DONE, or what went wrong.
#include <cstdio>

#include "server_world.h"

namespace korvane::automation {
namespace {

ComPointer<IDispatch> create(const char* class_name, const GUID& wanted) {
    CLSID class_id;
    require(CLSIDFromProgID(utf16_from_utf8(find_class(class_name)->prog_id()).c_str(), &class_id), "Finding a class");
    ComPointer<IDispatch> object;
    require(CoCreateInstance(class_id, nullptr, CLSCTX_INPROC_SERVER, wanted,
                             reinterpret_cast<void**>(object.GetAddressOf())),
            "Making an object");
    return object;
}

int run() {
    require(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "Entering the apartment");
    const auto parser = create("SpectrumParser", guid_of(find_class("SpectrumParser")->interface_id));
    const auto preferences = create("clsTunePrefsXML", IID_IDispatch);
    Call peak(*parser.Get()), spectrum(*parser.Get()), preference(*preferences.Get());
    Variant kind, mass, name, start, others;
    fill_variant(2, *kind);
    fill_variant(294.938932, *mass);
    fill_variant("NoSuchPreference", *name);
    peak(L"GetPeakAttribute", {*kind, *mass});
    // References are carried there and back.
    const VARIANT other = reference_to(VT_VARIANT, others.get());
    spectrum(L"GetNewSpectrumAndVerifyDataIsPopulated",
             {other, other, other, reference_to(VT_VARIANT, start.get()), other});
    preference(L"GetTunePreference", {*name});
    const bool good = peak.outcome == "Success" && std::abs(peak.result->dblVal - mass->dblVal) < 0.001 &&
                      spectrum.outcome == "Success" && start->vt == VT_R8 && start->dblVal > 1000 &&
                      preference.outcome.starts_with("error -904 from ");
    std::printf("%s %s, %s, %s\n", good ? "DONE" : "FAIL", peak.outcome.c_str(), spectrum.outcome.c_str(),
                preference.outcome.c_str());
    return good ? 0 : 1;
}

}  // namespace
}  // namespace korvane::automation

int main() try { return korvane::automation::run(); } catch (const korvane::Error& error) {
    std::printf("FAIL %s\n", error.what());
    return 1;
}
