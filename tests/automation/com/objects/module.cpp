// Somebody else's automation objects, for tests: an instrument layer, "KorvaneTest.Layer", and the tracer
// "quillkit.trace.1".
#include <array>
#include <fstream>

#include "automation/com/com_object.h"
#include "automation/com/error_mapping.h"
#include "automation/com/record_info.h"
#include "layer/test_layer.h"
#include "layer_objects.h"
#include "platform/files.h"

namespace korvane::automation {
namespace {

IDispatch* make_layer() {
    return make_com_object(std::static_pointer_cast<NativeObject>(object_of_layer(std::make_shared<TestLayer>())));
}

/// It is on, and appends what it is told to the file that KORVANE_TEST_TRACE names.
struct TestTracer {
    std::string path = environment_text("KORVANE_TEST_TRACE");

    void write(const std::string& line) const {
        std::ofstream(path_from_utf8(path), std::ios::app | std::ios::binary) << line << '\n';
    }
    std::string mnameOfModule() { return {}; }
    void set_mnameOfModule(const std::string& name) { write("mnameOfModule|" + name); }
    bool mtraceFlag() {
        write("mtraceFlag");
        return true;
    }
    void Entry(const std::string& routine, std::int32_t level) {
        write("Entry|" + routine + "|" + std::to_string(level));
    }
    void Exit(const std::string& routine, std::int32_t level) {
        write("Exit|" + routine + "|" + std::to_string(level));
    }
    void TracePrint(const std::string& text, const std::string& routine, std::int32_t level) {
        write("TracePrint|" + text + "|" + routine + "|" + std::to_string(level));
    }
};

constexpr auto tracer_members =
    member_table(property<&TestTracer::mnameOfModule, &TestTracer::set_mnameOfModule>(1, ""),
                 property<&TestTracer::mtraceFlag>(2, "mtraceFlag", ""),
                 method<&TestTracer::Entry>(3, "", reference("Routine"), reference("Level")),
                 method<&TestTracer::Exit>(4, "", reference("Routine"), reference("Level")),
                 method<&TestTracer::TracePrint>(5, "", reference("Text"), reference("Routine"), reference("Level")));

IDispatch* make_tracer() {
    static const ClassDescription description{"TestTracer", {}, {}, {}, tracer_members};
    return make_com_object(std::make_shared<NativeObject>(description, std::make_shared<TestTracer>()));
}

struct TestClass {
    const wchar_t* prog_id;
    const wchar_t* class_id;
    IDispatch* (*make)();
};
constexpr std::array classes{
    TestClass{L"KorvaneTest.Layer", L"{0C0A7B5E-31F4-4C0B-9E0E-6D2C8F5A9B11}", &make_layer},
    TestClass{L"quillkit.trace.1", L"{0C0A7B5E-31F4-4C0B-9E0E-6D2C8F5A9B12}", &make_tracer},
};

class Factory final : public IClassFactory {
public:
    explicit Factory(IDispatch* (*make)()) : make_(make) {}
    virtual ~Factory() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IClassFactory);
        *result = known ? this : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID wanted, void** result) override {
        try {
            return ComPointer<IDispatch>::owned(make_())->QueryInterface(wanted, result);
        } catch (...) {
            return leave_error_object(error_in_flight(), GUID_NULL);
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    IDispatch* (*make_)();
    std::atomic<ULONG> references_{1};
};

HRESULT set_value(const std::wstring& key, const std::wstring& value) {
    return HRESULT_FROM_WIN32(RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, REG_SZ, value.c_str(),
                                              static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
}

}  // namespace
}  // namespace korvane::automation

using namespace korvane::automation;

extern "C" {

HRESULT WINAPI DllGetClassObject(REFCLSID class_id, REFIID wanted, void** result) {
    for (const TestClass& known : classes) {
        CLSID id;
        CLSIDFromString(known.class_id, &id);
        if (IsEqualGUID(id, class_id))
            return ComPointer<Factory>::owned(new Factory(known.make))->QueryInterface(wanted, result);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT WINAPI DllCanUnloadNow() {
    return S_FALSE;
}

HRESULT WINAPI DllRegisterServer() {
    HRESULT code = S_OK;
    for (const TestClass& known : classes) {
        const std::wstring id = known.class_id, prog_id = known.prog_id;
        if (SUCCEEDED(code)) code = set_value(prog_id + L"\\CLSID", id);
        if (SUCCEEDED(code)) code = set_value(L"CLSID\\" + id + L"\\InprocServer32", module_path());
    }
    return code;
}

HRESULT WINAPI DllUnregisterServer() {
    for (const TestClass& known : classes) {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, known.prog_id);
        RegDeleteTreeW(HKEY_CLASSES_ROOT, (std::wstring(L"CLSID\\") + known.class_id).c_str());
    }
    return S_OK;
}
}
