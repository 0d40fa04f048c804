// IDispatch::GetIDsOfNames and Invoke, by the member tables.
#ifdef _WIN32

#include "automation/com/com_object.h"
#include "automation/com/error_mapping.h"
#include "automation/com/variant_conversion.h"
#include "automation/late_binding.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t argument_not_optional = 449;
constexpr WORD put_flags = DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF;

/// The caller's arguments, by the place of their parameters; null where one is left out.
struct PlacedArguments {
    VARIANT* variants[most_parameters] = {};
    UINT places[most_parameters] = {};  ///< in the caller's array
};

HRESULT place_arguments(const Member& member, const DISPPARAMS& given, PlacedArguments& placed) {
    const UINT positional = given.cArgs - given.cNamedArgs;
    if (given.cNamedArgs > given.cArgs || positional > member.parameter_count) return DISP_E_BADPARAMCOUNT;
    const auto put = [&](std::size_t place, UINT argument) {
        if (place >= member.parameter_count) return false;
        placed.variants[place] = &given.rgvarg[argument];
        placed.places[place] = argument;
        return true;
    };
    for (UINT argument = 0; argument < given.cNamedArgs; ++argument) {
        const DISPID name = given.rgdispidNamedArgs[argument];
        const std::size_t place =
            name == DISPID_PROPERTYPUT ? member.parameter_count - 1 : static_cast<std::size_t>(name);
        if (!put(place, argument)) return DISP_E_PARAMNOTFOUND;
    }
    for (UINT argument = 0; argument < positional; ++argument)
        if (!placed.variants[argument]) put(argument, given.cArgs - 1 - argument);
    return S_OK;
}

const Member* member_for(const MemberIndex& index, DISPID dispid, WORD flags) {
    if (flags & put_flags) return index.find(dispid, Access::put);
    return index.find(dispid, flags & DISPATCH_METHOD ? Access::call : Access::get);
}

/// Scripts read properties with the flags of a method call and the reverse.
const Member* lenient_member_for(const MemberIndex& index, DISPID dispid, WORD flags) {
    const Member* const member = member_for(index, dispid, flags);
    if (member || (flags & put_flags)) return member;
    return index.find(dispid, Access::call);
}

/// A conversion that failed: what late binding itself has a code for goes by it, with the argument's place.
HRESULT report_argument(const ArgumentError& error, const PlacedArguments& placed, EXCEPINFO* details, UINT* wrong) {
    if (wrong) *wrong = placed.places[error.place()];
    switch (error.number()) {
        case argument_not_optional:
            return DISP_E_PARAMNOTOPTIONAL;
        case error_number::type_mismatch:
        case 94:   // Null
        case 424:  // object required
            return DISP_E_TYPEMISMATCH;
        case error_number::overflow:
            return DISP_E_OVERFLOW;
        default:
            return report_exception(error, details);
    }
}

Value load(const Member& member, std::size_t place, const VARIANT& variant) {
    try {
        return value_of_variant(variant);
    } catch (const Error& error) {
        throw ArgumentError(error, member, place);
    }
}

void invoke_placed(ComObject& self, const Member& member, const PlacedArguments& placed, VARIANT* result) {
    ArgumentStack values(member.parameter_count);
    for (std::size_t place = 0; place < member.parameter_count; ++place) {
        const Parameter& parameter = member.parameter_slots[place];
        if (!placed.variants[place]) continue;
        // What a pure result holds before the call does not matter, but that it is there does.
        if (parameter.direction == Direction::result)
            values[place] = Empty{};
        else
            values[place] = load(member, place, *placed.variants[place]);
    }
    Value returned = call_member(member, self.native().target().get(), values.values());
    for (std::size_t place = 0; place < member.parameter_count; ++place)
        if (placed.variants[place] && member.parameter_slots[place].changes)
            store_into_variable(values[place], *placed.variants[place]);
    if (result) {
        VariantInit(result);
        fill_variant(returned, *result);
    }
}

}  // namespace

HRESULT STDMETHODCALLTYPE get_ids_of_names(ComObject* self, REFIID, LPOLESTR* names, UINT count, LCID,
                                           DISPID* dispids) {
    if (!names || !dispids) return E_POINTER;
    if (count == 0) return S_OK;
    const MemberIndex& index = self->description().index;
    const std::int32_t dispid = index.dispid_of(std::wstring_view(names[0]));
    dispids[0] = dispid == 0 ? DISPID_UNKNOWN : dispid;
    bool all_known = dispid != 0;
    const Member* member = index.find(dispid, Access::call);
    if (!member) member = index.find(dispid, Access::put);
    for (UINT name = 1; name < count; ++name) {
        dispids[name] = member ? MemberIndex::parameter_place(*member, std::wstring_view(names[name])) : DISPID_UNKNOWN;
        all_known = all_known && dispids[name] != DISPID_UNKNOWN;
    }
    return all_known ? S_OK : DISP_E_UNKNOWNNAME;
}

HRESULT STDMETHODCALLTYPE invoke_member(ComObject* self, DISPID dispid, REFIID reserved, LCID, WORD flags,
                                        DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* details,
                                        UINT* wrong_argument) {
    if (!IsEqualGUID(reserved, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    if (!parameters) return E_POINTER;
    const Member* const member = lenient_member_for(self->description().index, dispid, flags);
    if (!member) return DISP_E_MEMBERNOTFOUND;
    PlacedArguments placed;
    const HRESULT placing = place_arguments(*member, *parameters, placed);
    if (FAILED(placing)) return placing;
    // The object may be released by what the member does; it must live until the call is over.
    const std::shared_ptr<NativeObject> keep = self->object;
    try {
        invoke_placed(*self, *member, placed, result);
        return S_OK;
    } catch (const ArgumentError& error) {
        return report_argument(error, placed, details, wrong_argument);
    } catch (...) {
        return report_exception(error_in_flight(), details);
    }
}

}  // namespace korvane::automation

#endif
