#ifdef _WIN32

#include "automation/com/error_mapping.h"
#include "automation/com/record_info.h"
#include "automation/com/variant_arguments.h"
#include "automation/com/vtable.h"

namespace korvane::automation {

namespace {

/// A reference to a variable of a declared type.
VARIANT reference_to(const DeclaredType& type, void* variable) {
    VARIANT reference;
    VariantInit(&reference);
    reference.vt = static_cast<VARTYPE>(type.description().variant_type | VT_BYREF);
    reference.byref = variable;
    if (type.kind == TypeKind::record) reference.pRecInfo = record_info_of(*find_record(type.name));
    return reference;
}

bool is_pointer(const VARIANT& reference) {
    const auto kind = static_cast<VARTYPE>(reference.vt & VT_TYPEMASK);
    return (reference.vt & VT_ARRAY) || kind == VT_BSTR || kind == VT_DISPATCH;
}

class StackArguments final : public VariantArguments {
public:
    /// `slots` are the addresses of the arguments on the stack. A null pointer leaves a reference out.
    StackArguments(const Member& member, void* const* slots) {
        for (std::size_t place = 0; place < member.parameter_count; ++place) {
            const Parameter& parameter = member.parameter_slots[place];
            void* const variable = parameter.is_by_reference() ? *static_cast<void**>(slots[place]) : slots[place];
            if (!variable) continue;
            references_[place] = reference_to(parameter.type, variable);
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

}  // namespace

HRESULT call_from_vtable(ComObject& self, const Member& member, void* const* slots, void* result) noexcept {
    try {
        // The object may be released by what the member does; it must live until the call is over.
        const std::shared_ptr<NativeObject> keep = self.object;
        StackArguments arguments(member, slots);
        const Value returned = call_member(member, keep->target(), arguments);
        if (!result) return S_OK;
        VARIANT place = reference_to(member.result, result);
        // It holds nothing yet.
        if (member.result.kind == TypeKind::variant)
            VariantInit(place.pvarVal);
        else if (is_pointer(place))
            *static_cast<void**>(result) = nullptr;
        store_into_variable(returned, place);
        return S_OK;
    } catch (...) {
        return leave_error_object(error_in_flight(), self.interface_id);
    }
}

}  // namespace korvane::automation

#endif
