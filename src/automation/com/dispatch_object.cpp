// Somebody else's automation objects: their calls, and those that the library finds by ProgID: the tracer, and an
// instrument layer.
#ifdef _WIN32

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "automation/com/com_object.h"
#include "instrument/library/instrument_library.h"
#include "korvane/embedded.h"
#include "korvane/system.h"

namespace korvane::automation {

namespace {

/// Kinds of which typed languages declare parameters by reference.
bool is_plain(VARTYPE kind) {
    constexpr VARTYPE plain[]{VT_I2, VT_I4, VT_R4, VT_R8, VT_DATE, VT_BOOL, VT_BSTR};
    return std::ranges::find(plain, kind) != std::end(plain);
}

/// The caller's variables as an object gets them: by reference, the last one first; numbers, truth values and texts as
/// what they are, others inside a variant.
class Parameters {
public:
    explicit Parameters(std::vector<Value>& values)
        : values_(values), variables_(values.size()), before_(values.size()), references_(values.size()) {
        for (std::size_t place = 0; place < values.size(); ++place) {
            fill_variant(values[place], *variables_[place]);
            before_[place] = *variables_[place];
            const VARTYPE kind = variables_[place]->vt;
            VARIANT& reference = references_[values.size() - 1 - place];
            if (values[place].holds<Missing>())
                reference = *variables_[place];
            else if (is_plain(kind))
                reference = reference_to(kind, &variables_[place]->llVal);
            else
                reference = reference_to(VT_VARIANT, variables_[place].get());
        }
    }

    DISPPARAMS parameters() { return {references_.data(), nullptr, static_cast<UINT>(references_.size()), 0}; }

    /// Reads what the object changed. A variable with the same bits is taken for unchanged: spectra are large. A text
    /// may have been changed where it lies.
    void read_back() {
        for (std::size_t place = 0; place < values_.size(); ++place)
            if (variables_[place]->vt == VT_BSTR ||
                std::memcmp(&before_[place], variables_[place].get(), sizeof(VARIANT)) != 0)
                values_[place] = value_of_variant(*variables_[place]);
    }

private:
    std::vector<Value>& values_;
    std::vector<Variant> variables_;
    std::vector<VARIANT> before_;
    std::vector<VARIANT> references_;
};

Object layer_object(const std::string& prog_id) {
    Object object = create_registered_object(prog_id);
    if (!object) raise_runtime_fault(cannot_create, prog_id);
    return object;
}

class AutomationTracer final : public Tracer {
public:
    /// The tracer is never released: its thread may have left automation before its state goes.
    explicit AutomationTracer(Object object) : object_(*new Object(std::move(object))) {}

    void set_module_name(const std::string& name) override { object_->put("mnameOfModule", name); }
    bool trace_flag() override { return object_->get("mtraceFlag").as_boolean(); }
    void entry(const std::string& routine, std::int32_t level) override { object_->call("Entry", {routine, level}); }
    void exit(const std::string& routine, std::int32_t level) override { object_->call("Exit", {routine, level}); }
    void trace_print(const std::string& text, const std::string& routine, std::int32_t level) override {
        object_->call("TracePrint", {text, routine, level});
    }

private:
    Object& object_;
};

/// Tracers of the class that the routines ask for where it is registered, else those of another factory.
class SystemTracers final : public TracerFactory {
public:
    explicit SystemTracers(std::shared_ptr<TracerFactory> others) : others_(std::move(others)) {}

    std::unique_ptr<Tracer> create(std::string_view prog_id) override {
        if (Object object = create_registered_object(std::string(prog_id)))
            return std::make_unique<AutomationTracer>(std::move(object));
        return others_->create(prog_id);
    }

private:
    std::shared_ptr<TracerFactory> others_;
};

}  // namespace

std::string DispatchObject::class_name() const {
    ComPointer<ITypeInfo> type;
    Variant name;
    name->vt = VT_BSTR;
    name->bstrVal = nullptr;
    if (FAILED(dispatch_->GetTypeInfo(0, LOCALE_USER_DEFAULT, type.GetAddressOf())) || !type)
        return "of a foreign class";
    if (FAILED(type->GetDocumentation(MEMBERID_NIL, &name->bstrVal, nullptr, nullptr, nullptr)))
        return "of a foreign class";
    return text_of(name->bstrVal);
}

std::int32_t DispatchObject::dispid_of(std::string_view member) const {
    std::wstring name = utf16_from_utf8(member);
    wchar_t* names = name.data();
    DISPID dispid = DISPID_UNKNOWN;
    const HRESULT code = dispatch_->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &dispid);
    if (code == DISP_E_UNKNOWNNAME) raise_runtime_fault(no_such_member, class_name() + "." + std::string(member));
    require(code, "Looking up a member");
    return dispid;
}

Value DispatchObject::invoke(std::int32_t dispid, Arguments& arguments, Access access) {
    if (!arguments.named.empty()) raise_runtime_fault(no_such_argument, "named arguments for a foreign object");
    Parameters given(arguments.positional);
    DISPPARAMS parameters = given.parameters();
    DISPID put_name = DISPID_PROPERTYPUT;
    WORD flags = access == Access::call ? DISPATCH_METHOD | DISPATCH_PROPERTYGET : DISPATCH_PROPERTYGET;
    if (access == Access::put) {
        flags = DISPATCH_PROPERTYPUT;
        parameters.rgdispidNamedArgs = &put_name;
        parameters.cNamedArgs = 1;
    }
    Variant result;
    EXCEPINFO details{};
    UINT wrong = 0;
    const HRESULT code = dispatch_->Invoke(dispid, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters,
                                           access == Access::put ? nullptr : result.get(), &details, &wrong);
    if (FAILED(code))
        throw error_of_call(code, details, "Member number " + std::to_string(dispid) + " of an object " + class_name());
    given.read_back();
    return value_of_variant(*result);
}

Object create_registered_object(const std::string& prog_id) {
    // The caller's thread may not have been prepared for automation; a second preparation does no harm.
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CLSID class_id;
    if (FAILED(CLSIDFromProgID(utf16_from_utf8(prog_id).c_str(), &class_id))) return nullptr;
    ComPointer<IDispatch> dispatch;
    const HRESULT code = CoCreateInstance(class_id, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                          reinterpret_cast<void**>(dispatch.GetAddressOf()));
    if (FAILED(code))
        raise_runtime_fault(cannot_create, fmt::format("{} (0x{:08X})", prog_id, static_cast<ULONG>(code)));
    return std::make_shared<DispatchObject>(std::move(dispatch));
}

const Platform& process_platform() {
    static const Platform platform = [] {
        const auto instrument = default_instrument();
        return instrument ? make_outside_platform(*instrument) : with_system_tracer(make_embedded_platform({}));
    }();
    return platform;
}

Platform make_outside_platform(const std::string& instrument) {
    if (names_library(instrument)) return with_system_tracer(korvane::make_outside_platform(instrument));
    // An automation object belongs to the thread that made it, a platform to all of them.
    return with_system_tracer(make_platform(make_late_bound_layer([instrument] { return layer_object(instrument); })));
}

Platform with_system_tracer(Platform platform) {
    platform.tracers = std::make_shared<SystemTracers>(platform.tracers);
    return platform;
}

}  // namespace korvane::automation

#endif
