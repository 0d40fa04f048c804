// Direct dispatch against dispatch by the type library, side by side on the objects of the server:
// korvane_bench_windows Korvane.dll. KORVANE_BASE names the base folder. Exit code 1 where a limit is missed.
#include <cstdio>
#include <functional>

#include "automation/class_description.h"
#include "automation/com/com_basics.h"
#include "bench/interleaved.h"

namespace korvane::automation {
namespace {

ComPointer<IDispatch> create(HMODULE module, std::string_view class_name) {
    using GetClassObject = HRESULT WINAPI(REFCLSID, REFIID, void**);
    auto* const get_class_object =
        reinterpret_cast<GetClassObject*>(reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    ComPointer<IClassFactory> factory;
    require(get_class_object(guid_of(find_class(class_name)->class_id), IID_IClassFactory,
                             reinterpret_cast<void**>(factory.GetAddressOf())),
            "Asking for a class");
    ComPointer<IDispatch> object;
    require(factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(object.GetAddressOf())),
            "Making an object");
    return object;
}

ComPointer<ITypeInfo> type_of(IDispatch& object) {
    ComPointer<ITypeInfo> type;
    require(object.GetTypeInfo(0, 0, type.GetAddressOf()), "Asking for the type");
    return type;
}

/// The interface of the dual object that its type library calls by the vtable.
ComPointer<IDispatch> dual_interface(IDispatch& object, std::string_view class_name) {
    ComPointer<IDispatch> dual;
    require(object.QueryInterface(guid_of(find_class(class_name)->interface_id),
                                  reinterpret_cast<void**>(dual.GetAddressOf())),
            "Asking for the dual interface");
    return dual;
}

DISPID dispid_of(IDispatch& object, const wchar_t* name) {
    LPOLESTR names = const_cast<LPOLESTR>(name);
    DISPID dispid = 0;
    require(object.GetIDsOfNames(IID_NULL, &names, 1, 0, &dispid), "Asking for a name");
    return dispid;
}

struct Row {
    const char* figure;
    double limit;
    std::function<void()> direct, by_type_library;
};

bool print(const Row& row) {
    const auto times = bench::interleaved("direct", row.direct, "type library", row.by_type_library, 2000);
    const double ratio = times[0].second / times[1].second;
    std::printf("| %s | %.0f ns | %.0f ns | %.3f | %.3f | %s |\n", row.figure, times[0].second, times[1].second, ratio,
                row.limit, ratio <= row.limit ? "yes" : "no");
    return ratio <= row.limit;
}

int run(const char* server) {
    CoInitialize(nullptr);
    HMODULE const module = LoadLibraryA(server);
    if (!module) {
        std::fprintf(stderr, "cannot load %s\n", server);
        return 2;
    }
    const auto globals = create(module, "TuneGlobals");
    const auto globals_dual = dual_interface(*globals.Get(), "TuneGlobals");
    const auto globals_type = type_of(*globals.Get());
    DISPPARAMS none{};
    Variant lent;
    require(globals->Invoke(dispid_of(*globals.Get(), L"GetCurrentCalibrationObjFromDD"), IID_NULL, 0, DISPATCH_METHOD,
                            &none, lent.get(), nullptr, nullptr),
            "Asking for a calibration");
    IDispatch& calibration = *lent->pdispVal;
    const auto calibration_dual = dual_interface(calibration, "MassTimeCalibration");
    const auto calibration_type = type_of(calibration);

    VARIANT time{};
    time.vt = VT_R8;
    time.dblVal = 54321.0;
    DISPPARAMS one{&time, nullptr, 1, 0};
    const DISPID mass_from_time = dispid_of(calibration, L"MassFromTime");
    const DISPID segment = dispid_of(*globals.Get(), L"CurrentTimeSegment");
    wchar_t name[] = L"GetMSSetpointValueByIdx";
    LPOLESTR names = name;
    DISPID found = 0;
    Variant result;

    constexpr double third = 1.0 / 3, tenth = 0.1;
    const Row rows[] = {
        {"`Invoke` of a method, one argument", third,
         [&] {
             calibration.Invoke(mass_from_time, IID_NULL, 0, DISPATCH_METHOD, &one, result.get(), nullptr, nullptr);
         },
         [&] {
             calibration_type->Invoke(calibration_dual.Get(), mass_from_time, DISPATCH_METHOD, &one, result.get(),
                                      nullptr, nullptr);
         }},
        {"`Invoke` of a property read", third,
         [&] { globals->Invoke(segment, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, result.get(), nullptr, nullptr); },
         [&] {
             globals_type->Invoke(globals_dual.Get(), segment, DISPATCH_PROPERTYGET, &none, result.get(), nullptr,
                                  nullptr);
         }},
        {"`GetIDsOfNames`, a name of 71", tenth, [&] { globals->GetIDsOfNames(IID_NULL, &names, 1, 0, &found); },
         [&] { globals_type->GetIDsOfNames(&names, 1, &found); }},
    };
    std::puts("| figure | direct | by the type library | ratio | reach | reached |\n|---|---|---|---|---|---|");
    bool all = true;
    for (const Row& row : rows) all = print(row) && all;
    return all ? 0 : 1;
}

}  // namespace
}  // namespace korvane::automation

int main(int count, char** arguments) {
    if (count != 2) {
        std::fputs("usage: korvane_bench_windows Korvane.dll\n", stderr);
        return 2;
    }
    return korvane::automation::run(arguments[1]);
}
