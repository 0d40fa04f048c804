// Our objects as callers on Windows see them: what they are made of, the calls that come in by IDispatch and by the
// vtable, and their factory.
#ifdef _WIN32

#include "automation/com/com_object.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <type_traits>
#include <utility>

#include "automation/spectrum_parser_members.h"
#include "automation/store_and_object_members.h"
#include "automation/tune_globals_members.h"

namespace korvane::automation {

namespace {

/// The second interface of an object, which counts for it.
class ErrorSupport final : public ISupportErrorInfo {
public:
    ErrorSupport(IUnknown* object, const GUID& interface_id) : object_(object), interface_id_(interface_id) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        return object_->QueryInterface(wanted, result);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return object_->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return object_->Release(); }
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID asked) override {
        return IsEqualGUID(asked, interface_id_) || IsEqualGUID(asked, IID_IDispatch) ? S_OK : S_FALSE;
    }

private:
    IUnknown* const object_;
    const GUID& interface_id_;
};

/// What is behind every interface pointer. The first member is the address of the vtable, as callers expect.
struct ComObject {
    const void* const* vtable;
    std::shared_ptr<NativeObject> object;
    GUID interface_id;  ///< of the dual interface; all zeros for a class without one
    std::atomic<ULONG> references = 1;
    ErrorSupport error_support{reinterpret_cast<IUnknown*>(this), interface_id};

    const ClassDescription& description() const { return object->description(); }
};

HRESULT STDMETHODCALLTYPE query_interface(ComObject* self, REFIID wanted, void** result) {
    if (!result) return E_POINTER;
    *result = nullptr;
    const bool dual = !IsEqualGUID(self->interface_id, GUID_NULL) && IsEqualGUID(wanted, self->interface_id);
    if (dual || IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IDispatch)) {
        *result = self;
    } else if (IsEqualGUID(wanted, IID_ISupportErrorInfo)) {
        *result = &self->error_support;
    } else {
        return E_NOINTERFACE;
    }
    ++self->references;
    return S_OK;
}

ULONG STDMETHODCALLTYPE add_reference(ComObject* self) {
    return ++self->references;
}

ULONG STDMETHODCALLTYPE release_reference(ComObject* self) {
    const ULONG left = --self->references;
    if (left == 0) {
        delete self;
        --module_uses;
    }
    return left;
}

HRESULT STDMETHODCALLTYPE get_type_info_count(ComObject* self, UINT* count) {
    if (!count) return E_POINTER;
    *count = IsEqualGUID(self->interface_id, GUID_NULL) ? 0 : 1;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE get_type_info(ComObject* self, UINT index, LCID, ITypeInfo** result) {
    if (!result) return E_POINTER;
    *result = nullptr;
    if (index != 0 || IsEqualGUID(self->interface_id, GUID_NULL)) return DISP_E_BADINDEX;
    try {
        return type_library().GetTypeInfoOfGuid(self->interface_id, result);
    } catch (...) {
        return TYPE_E_CANTLOADLIBRARY;
    }
}

/// The arguments of a call as VARIANTs: those that Invoke gets, and references to what lies on a vtable call's stack.
/// By the places of the parameters; null where an argument is left out.
class VariantArguments : public CallFrame {
public:
    VARIANT* variants[most_parameters] = {};

    bool given(std::size_t place) const override { return variants[place] != nullptr; }
    Value load(std::size_t place) const override { return value_of_variant(*variants[place]); }
    void store(std::size_t place, Value changed) override { store_into_variable(changed, *variants[place]); }
};

class InvokeArguments final : public VariantArguments {
public:
    HRESULT bind(const Member& member, const DISPPARAMS& from) {
        const UINT positional = from.cArgs - from.cNamedArgs;
        if (from.cNamedArgs > from.cArgs || positional > member.parameter_count) return DISP_E_BADPARAMCOUNT;
        for (UINT argument = 0; argument < from.cNamedArgs; ++argument) {
            const DISPID name = from.rgdispidNamedArgs[argument];
            const std::size_t place =
                name == DISPID_PROPERTYPUT ? member.parameter_count - 1 : static_cast<std::size_t>(name);
            if (place >= member.parameter_count) return DISP_E_PARAMNOTFOUND;
            variants[place] = &from.rgvarg[argument];
        }
        for (UINT argument = 0; argument < positional; ++argument)
            if (!variants[argument]) variants[argument] = &from.rgvarg[from.cArgs - 1 - argument];
        return S_OK;
    }
};

/// A conversion that failed: what late binding itself has a code for goes by it, with the argument's place.
HRESULT report_argument(const ArgumentError& error, UINT place, EXCEPINFO* details, UINT* wrong) {
    if (wrong) *wrong = place;
    const std::int32_t number = error.number();
    if (number == argument_not_optional) return DISP_E_PARAMNOTOPTIONAL;
    if (number == error_number::overflow) return DISP_E_OVERFLOW;
    if (number == error_number::type_mismatch || number == invalid_use_of_null || number == object_required)
        return DISP_E_TYPEMISMATCH;
    return report_exception(error, details);
}

/// A reference to a variable of a declared type.
VARIANT typed_reference(const DeclaredType& type, void* variable) {
    VARIANT reference = reference_to(type.description().variant_type, variable);
    if (type.kind == TypeKind::record) reference.pRecInfo = record_info_of(*find_record(type.name));
    return reference;
}

class StackArguments final : public VariantArguments {
public:
    /// `slots` are the addresses of the arguments on the stack. A null pointer leaves a reference out.
    StackArguments(const Member& member, void* const* slots) {
        for (std::size_t place = 0; place < member.parameter_count; ++place) {
            const Parameter& parameter = member.parameter_slots[place];
            void* const variable = parameter.is_by_reference() ? *static_cast<void**>(slots[place]) : slots[place];
            if (!variable) continue;
            references_[place] = typed_reference(parameter.type, variable);
            variants[place] = &references_[place];
        }
    }

    /// An array that there is not is Empty.
    Value load(std::size_t place) const override {
        const VARIANT& reference = references_[place];
        return (reference.vt & VT_ARRAY) && !*reference.pparray ? Value() : VariantArguments::load(place);
    }

private:
    VARIANT references_[most_parameters];
};

/// Calls a member from the vtable. `slots` are the addresses of the arguments on the stack; `result` is where the
/// result goes, null for a member without one. Errors are left in the thread's error object.
HRESULT call_from_vtable(ComObject& self, const Member& member, void* const* slots, void* result) noexcept {
    try {
        // The object may be released by what the member does; it must live until the call is over.
        const std::shared_ptr<NativeObject> keep = self.object;
        StackArguments arguments(member, slots);
        const Value returned = call_member(member, keep->target(), arguments);
        if (!result) return S_OK;
        VARIANT place = typed_reference(member.result, result);
        const bool is_array = place.vt & VT_ARRAY;
        if (!is_array && member.result.kind != TypeKind::record) {
            construct(member.result.description().variant_type, returned, result);
            return S_OK;
        }
        if (is_array) *place.pparray = nullptr;  // it holds nothing yet
        store_into_variable(returned, place);
        return S_OK;
    } catch (...) {
        return leave_error_object(error_in_flight(), self.interface_id);
    }
}

HRESULT STDMETHODCALLTYPE get_ids_of_names(ComObject* self, REFIID, LPOLESTR* names, UINT count, LCID,
                                           DISPID* dispids) try {
    if (!names || !dispids) return E_POINTER;
    if (count == 0) return S_OK;
    const ClassDescription& description = self->description();
    const std::int32_t dispid = description.dispid_of(utf8_from_utf16(names[0]));
    dispids[0] = dispid == 0 ? DISPID_UNKNOWN : dispid;
    bool all_known = dispid != 0;
    const Member* const member = description.find(dispid, Access::call);
    for (UINT name = 1; name < count; ++name) {
        dispids[name] = member ? parameter_place(*member, utf8_from_utf16(names[name])) : DISPID_UNKNOWN;
        all_known = all_known && dispids[name] != DISPID_UNKNOWN;
    }
    return all_known ? S_OK : DISP_E_UNKNOWNNAME;
} catch (...) {
    return E_OUTOFMEMORY;
}

HRESULT STDMETHODCALLTYPE invoke_member(ComObject* self, DISPID dispid, REFIID reserved, LCID, WORD flags,
                                        DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* details,
                                        UINT* wrong_argument) {
    if (!IsEqualGUID(reserved, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    if (!parameters) return E_POINTER;
    // Scripts read properties with the flags of a method call and the reverse.
    const bool puts = flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF);
    const Member* const member = self->description().find(dispid, puts ? Access::put : Access::call);
    if (!member) return DISP_E_MEMBERNOTFOUND;
    InvokeArguments arguments;
    if (const HRESULT bound = arguments.bind(*member, *parameters); FAILED(bound)) return bound;
    // The object may be released by what the member does; it must live until the call is over.
    const std::shared_ptr<NativeObject> keep = self->object;
    try {
        const Value returned = call_member(*member, keep->target(), arguments);
        if (result) {
            VariantInit(result);
            fill_variant(returned, *result);
        }
        return S_OK;
    } catch (const ArgumentError& error) {
        const VARIANT* const given = arguments.variants[error.place()];
        const UINT place = given ? static_cast<UINT>(given - parameters->rgvarg) : 0;
        return report_argument(error, place, details, wrong_argument);
    } catch (...) {
        return report_exception(error_in_flight(), details);
    }
}

/// A function as a slot of a vtable.
template <class Function>
const void* address_of(Function* function) {
    return reinterpret_cast<const void*>(function);
}

/// How an argument by value lies on the stack, by `TypeKind`. By reference it is a pointer, whatever it points to; so
/// is an object or an array.
using ValueSlots = std::tuple<void, VARIANT, VARIANT_BOOL, LONG, float, double, BSTR, LONG, void, void*, void*, void*>;

template <const auto& members, std::size_t index>
struct Thunk {
    static constexpr const Member& member = members[index];

    // A record by value would have no slot: records are passed by reference.
    template <std::size_t place>
    using Slot = std::conditional_t<
        member.parameter_slots[place].is_by_reference(), void*,
        std::tuple_element_t<static_cast<std::size_t>(member.parameter_slots[place].type.kind), ValueSlots>>;

    template <class Places>
    struct With;
    template <std::size_t... place>
    struct With<std::index_sequence<place...>> {
        static HRESULT STDMETHODCALLTYPE without_result(ComObject* self, Slot<place>... arguments) {
            void* const slots[] = {&arguments..., nullptr};
            return call_from_vtable(*self, member, slots, nullptr);
        }
        static HRESULT STDMETHODCALLTYPE with_result(ComObject* self, Slot<place>... arguments, void* result) {
            void* const slots[] = {&arguments..., nullptr};
            if (!result) return E_POINTER;
            return call_from_vtable(*self, member, slots, result);
        }
    };

    static const void* address() {
        using Function = With<std::make_index_sequence<member.parameter_count>>;
        if constexpr (member.result.kind == TypeKind::none) {
            return address_of(&Function::without_result);
        } else {
            return address_of(&Function::with_result);
        }
    }
};

/// In the order of IDispatch.
const std::array<const void*, common_slot_count> common_slots{
    address_of(&query_interface),     address_of(&add_reference), address_of(&release_reference),
    address_of(&get_type_info_count), address_of(&get_type_info), address_of(&get_ids_of_names),
    address_of(&invoke_member)};

template <const auto& members>
const void* const* make_vtable() {
    static const auto vtable = []<std::size_t... index>(std::index_sequence<index...>) {
        std::array<const void*, common_slot_count + sizeof...(index)> slots{};
        std::copy(common_slots.begin(), common_slots.end(), slots.begin());
        ((slots[common_slot_count + index] = Thunk<members, index>::address()), ...);
        return slots;
    }
    (std::make_index_sequence<members.size()>());
    return vtable.data();
}

template <const auto&... tables>
const void* const* vtable_among(std::span<const Member> members) {
    const void* const* vtable = common_slots.data();
    static_cast<void>(((tables.data() == members.data() && (vtable = make_vtable<tables>())) || ...));
    return vtable;
}

/// The vtable of a class: the common slots, then its members in the order of its table. The common slots alone for a
/// class without a dual interface.
const void* const* vtable_of(const ClassDescription& description) {
    return vtable_among<tune_globals_members, spectrum_parser_members, cal_mass_list_members, tune_params_members,
                        tune_prefs_members, abort_helper_members, peak_list_members, mass_time_calibration_members>(
        description.members);
}

class ClassFactory final : public Counted<IClassFactory> {
public:
    ClassFactory(std::function<IDispatch*()> make, const GUID& interface_id)
        : make_(std::move(make)), interface_id_(interface_id) {
        ++module_uses;
    }
    ~ClassFactory() override { --module_uses; }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID wanted, void** result) override {
        if (!result) return E_POINTER;
        *result = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            return owned(make_())->QueryInterface(wanted, result);
        } catch (...) {
            return leave_error_object(error_in_flight(), interface_id_);
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? ++module_uses : --module_uses;
        return S_OK;
    }

private:
    const std::function<IDispatch*()> make_;
    const GUID interface_id_;
};

}  // namespace

IDispatch* make_com_object(std::shared_ptr<NativeObject> object) {
    const ClassDescription& description = object->description();
    const GUID interface_id = description.interface_id.empty() ? GUID_NULL : guid_of(description.interface_id);
    auto* const made = new ComObject{vtable_of(description), std::move(object), interface_id};
    ++module_uses;
    return reinterpret_cast<IDispatch*>(made);
}

HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result) {
    return owned(new ClassFactory(std::move(make), interface_id))->QueryInterface(wanted, result);
}

Object object_of_dispatch(IDispatch* dispatch) {
    if (!dispatch) return nullptr;
    // An object of this module is known by its first function.
    const auto* const own = reinterpret_cast<const ComObject*>(dispatch);
    if (own->vtable[0] == address_of(&query_interface)) return own->object;
    return std::make_shared<DispatchObject>(ComPointer<IDispatch>(dispatch));
}

IDispatch* dispatch_of_object(const Object& object) {
    if (!object) return nullptr;
    if (auto native = std::dynamic_pointer_cast<NativeObject>(object)) return make_com_object(std::move(native));
    const auto* const foreign = dynamic_cast<const DispatchObject*>(object.get());
    if (!foreign) raise_runtime_fault(error_number::type_mismatch, "an object " + object->class_name());
    foreign->dispatch()->AddRef();
    return foreign->dispatch();
}

}  // namespace korvane::automation

#endif
