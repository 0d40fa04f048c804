#ifdef _WIN32

#include <cstring>

#include "automation/com/error_mapping.h"
#include "automation/com/record_info.h"
#include "automation/com/safe_arrays.h"
#include "automation/com/variant_conversion.h"
#include "automation/com/vtable.h"
#include "automation/late_binding.h"

namespace korvane::automation {

namespace {

template <class T>
T& at(void* place) {
    return *static_cast<T*>(place);
}

Value array_at(void* place, VARTYPE kind) {
    SAFEARRAY* const array = at<SAFEARRAY*>(place);
    if (!array) return Empty{};
    return array_of_safe_array(array, kind);
}

Record record_at(void* place, const DeclaredType& type) {
    const RecordDescription& description = *find_record(type.name);
    Record record = make_record(description);
    std::memcpy(data_of(record), place, description.size);
    return record;
}

/// The value of a declared type at a place in memory.
Value load(const DeclaredType& type, void* place) {
    switch (type.kind) {
        case TypeKind::none:
            return Empty{};
        case TypeKind::variant:
            return value_of_variant(at<VARIANT>(place));
        case TypeKind::boolean:
            return at<VARIANT_BOOL>(place) != VARIANT_FALSE;
        case TypeKind::long_integer:
        case TypeKind::enumeration:
            return static_cast<std::int32_t>(at<LONG>(place));
        case TypeKind::single:
            return at<float>(place);
        case TypeKind::real:
            return at<double>(place);
        case TypeKind::text:
            return text_of(at<BSTR>(place));
        case TypeKind::record:
            return record_at(place, type);
        case TypeKind::object:
            return object_of_dispatch(at<IDispatch*>(place));
        case TypeKind::real_array:
            return array_at(place, VT_R8);
        case TypeKind::text_array:
            return array_at(place, VT_BSTR);
    }
    return Empty{};
}

SAFEARRAY* array_of_kind(const Value& value, VARTYPE kind) {
    return value.holds<Empty>() ? nullptr : safe_array_of(value.as_array(), kind, nullptr);
}

/// Writes a value to a place that holds nothing yet.
void store(const DeclaredType& type, const Value& value, void* place) {
    switch (type.kind) {
        case TypeKind::none:
            return;
        case TypeKind::variant:
            VariantInit(static_cast<VARIANT*>(place));
            return fill_variant(value, at<VARIANT>(place));
        case TypeKind::boolean:
            at<VARIANT_BOOL>(place) = value.as_boolean() ? VARIANT_TRUE : VARIANT_FALSE;
            return;
        case TypeKind::long_integer:
        case TypeKind::enumeration:
            at<LONG>(place) = value.as_int32();
            return;
        case TypeKind::single:
            at<float>(place) = value.as_single();
            return;
        case TypeKind::real:
            at<double>(place) = value.as_double();
            return;
        case TypeKind::text:
            at<BSTR>(place) = new_bstr(value.as_text());
            return;
        case TypeKind::record: {
            const Record& record = *value.get_if<Record>();
            std::memcpy(place, data_of(record), description_of(record).size);
            return;
        }
        case TypeKind::object:
            at<IDispatch*>(place) = dispatch_of_object(value.as_object());
            return;
        case TypeKind::real_array:
            at<SAFEARRAY*>(place) = array_of_kind(value, VT_R8);
            return;
        case TypeKind::text_array:
            at<SAFEARRAY*>(place) = array_of_kind(value, VT_BSTR);
            return;
    }
}

/// Puts a changed argument into the caller's variable and releases what was there.
void replace(const DeclaredType& type, const Value& value, void* place) {
    if (type.kind == TypeKind::variant) {
        VARIANT reference;
        VariantInit(&reference);
        reference.vt = VT_BYREF | VT_VARIANT;
        reference.pvarVal = static_cast<VARIANT*>(place);
        return store_into_variable(value, reference);
    }
    if (type.kind == TypeKind::text) {
        BSTR const old = at<BSTR>(place);
        store(type, value, place);
        return SysFreeString(old);
    }
    if (type.kind == TypeKind::object) {
        IDispatch* const old = at<IDispatch*>(place);
        store(type, value, place);
        if (old) old->Release();
        return;
    }
    if (type.kind == TypeKind::real_array || type.kind == TypeKind::text_array) {
        SAFEARRAY* const old = at<SAFEARRAY*>(place);
        store(type, value, place);
        if (old) SafeArrayDestroy(old);
        return;
    }
    store(type, value, place);
}

/// Where the argument's content lies: in the slot, or where the slot points. Null for a reference to nothing, which
/// leaves the argument out.
void* content_of(const Parameter& parameter, void* slot) {
    return parameter.is_by_reference() ? at<void*>(slot) : slot;
}

void call(ComObject& self, const Member& member, void* const* slots, void* result) {
    ArgumentStack values(member.parameter_count);
    for (std::size_t place = 0; place < member.parameter_count; ++place) {
        const Parameter& parameter = member.parameter_slots[place];
        void* const content = content_of(parameter, slots[place]);
        if (!content) continue;
        values[place] = parameter.direction == Direction::result ? Value() : load(parameter.type, content);
    }
    const Value returned = call_member(member, self.native().target().get(), values.values());
    for (std::size_t place = 0; place < member.parameter_count; ++place) {
        const Parameter& parameter = member.parameter_slots[place];
        void* const content = content_of(parameter, slots[place]);
        if (content && parameter.changes) replace(parameter.type, values[place], content);
    }
    if (result) store(member.result, returned, result);
}

}  // namespace

HRESULT call_from_vtable(ComObject& self, const Member& member, void* const* slots, void* result) noexcept {
    try {
        const std::shared_ptr<NativeObject> keep = self.object;
        call(self, member, slots, result);
        return S_OK;
    } catch (...) {
        return leave_error_object(error_in_flight(), self.interface_id);
    }
}

}  // namespace korvane::automation

#endif
