// IDispatch::GetIDsOfNames and Invoke, by the member tables.
#ifdef _WIN32

#include "automation/com/com_object.h"
#include "automation/com/error_mapping.h"
#include "automation/com/variant_arguments.h"
#include "automation/error_numbers.h"

namespace korvane::automation {

namespace {

constexpr WORD put_flags = DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF;

class InvokeArguments final : public VariantArguments {
public:
    UINT places[most_parameters] = {};  ///< in the caller's array

    HRESULT bind(const Member& member, const DISPPARAMS& from) {
        const UINT positional = from.cArgs - from.cNamedArgs;
        if (from.cNamedArgs > from.cArgs || positional > member.parameter_count) return DISP_E_BADPARAMCOUNT;
        const auto put = [&](std::size_t place, UINT argument) {
            if (place >= member.parameter_count) return false;
            variants[place] = &from.rgvarg[argument];
            places[place] = argument;
            return true;
        };
        for (UINT argument = 0; argument < from.cNamedArgs; ++argument) {
            const DISPID name = from.rgdispidNamedArgs[argument];
            const std::size_t place =
                name == DISPID_PROPERTYPUT ? member.parameter_count - 1 : static_cast<std::size_t>(name);
            if (!put(place, argument)) return DISP_E_PARAMNOTFOUND;
        }
        for (UINT argument = 0; argument < positional; ++argument)
            if (!variants[argument]) put(argument, from.cArgs - 1 - argument);
        return S_OK;
    }
};

const Member* member_for(const ClassDescription& description, DISPID dispid, WORD flags) {
    if (flags & put_flags) return description.find(dispid, Access::put);
    // Scripts read properties with the flags of a method call and the reverse.
    return description.find(dispid, Access::call);
}

/// A conversion that failed: what late binding itself has a code for goes by it, with the argument's place.
HRESULT report_argument(const ArgumentError& error, UINT place, EXCEPINFO* details, UINT* wrong) {
    if (wrong) *wrong = place;
    switch (error.number()) {
        case argument_not_optional:
            return DISP_E_PARAMNOTOPTIONAL;
        case error_number::type_mismatch:
        case invalid_use_of_null:
        case object_required:
            return DISP_E_TYPEMISMATCH;
        case error_number::overflow:
            return DISP_E_OVERFLOW;
        default:
            return report_exception(error, details);
    }
}

}  // namespace

HRESULT STDMETHODCALLTYPE get_ids_of_names(ComObject* self, REFIID, LPOLESTR* names, UINT count, LCID,
                                           DISPID* dispids) try {
    if (!names || !dispids) return E_POINTER;
    if (count == 0) return S_OK;
    const ClassDescription& description = self->description();
    const std::int32_t dispid = description.dispid_of(utf8_from_utf16(names[0]));
    dispids[0] = dispid == 0 ? DISPID_UNKNOWN : dispid;
    bool all_known = dispid != 0;
    const Member* member = description.find(dispid, Access::call);
    if (!member) member = description.find(dispid, Access::put);
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
    const Member* const member = member_for(self->description(), dispid, flags);
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
        return report_argument(error, arguments.places[error.place()], details, wrong_argument);
    } catch (...) {
        return report_exception(error_in_flight(), details);
    }
}

}  // namespace korvane::automation

#endif
