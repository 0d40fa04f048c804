// Automation objects on Windows: ours as callers see them, a dual interface laid out by hand and ISupportErrorInfo, and
// somebody else's; values between automation on Windows and the portable ones.
#pragma once

#include <atomic>
#include <functional>

#include "automation/class_description.h"
#include "automation/com/com_basics.h"
#include "automation/native_object.h"
#include "automation/records.h"

namespace korvane::automation {

/// Objects and locks that keep the module loaded.
inline std::atomic<LONG> module_uses{0};

/// A new interface to an object, counted once.
IDispatch* make_com_object(std::shared_ptr<NativeObject> object);

/// A factory of the objects that `make` makes, each counted once. Their errors bear the interface's identifier.
HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result);

/// Slots of a vtable before the members'.
inline constexpr std::size_t common_slot_count = 7;

/// Somebody else's automation object, called through its IDispatch.
class DispatchObject final : public LateBound {
public:
    explicit DispatchObject(ComPointer<IDispatch> dispatch) : dispatch_(std::move(dispatch)) {}

    std::string class_name() const override;
    std::int32_t dispid_of(std::string_view member) const override;
    /// Arguments go by reference, so that the object may change them.
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override;

    IDispatch* dispatch() const noexcept { return dispatch_.Get(); }

private:
    ComPointer<IDispatch> dispatch_;
};

/// A new object of a registered class; null where no class of this ProgID is registered. Error 429 naming the ProgID
/// where it is registered but cannot be made.
Object create_registered_object(const std::string& prog_id);

/// The value of a simple kind that lies in memory. Error 13 for kinds that automation values do not have.
Value value_at(VARTYPE kind, void* memory);
/// Puts a value as a simple kind into memory that holds nothing. Errors of the conversion.
void construct(VARTYPE kind, const Value& value, void* memory);

/// What a VARIANT holds, references followed. Error 13 for kinds that automation values do not have.
Value value_of_variant(const VARIANT& variant);
/// Fills an empty VARIANT.
void fill_variant(const Value& value, VARIANT& empty);

/// The array's elements and bounds; an array that was never dimensioned has rank 0. Error 13 for kinds of elements that
/// automation values do not have.
Array array_of_safe_array(SAFEARRAY* source, VARTYPE kind);

/// The element type that suits the elements; objects go into VARIANTs, because scripts can read no array of anything
/// else.
VARTYPE natural_kind(const Array& array);
/// A new array of a given element type; records are those of its first element where `record_info` does not tell. Error
/// 13 where an element does not convert.
SAFEARRAY* safe_array_of(const Array& array, VARTYPE kind, IRecordInfo* record_info = nullptr);

/// The system's description of a record; null for one that the type library does not have. Lives as long as the
/// process.
IRecordInfo* record_info_of(const RecordDescription& description);
/// The description of a record by what the system says of it. Error 13 for a record that is none of the library's.
const RecordDescription& description_of(IRecordInfo& info);

/// The record in a VARIANT of kind VT_RECORD.
Record record_of(const void* memory, IRecordInfo* info);

/// Puts a changed argument into the variable that the caller passed; nothing happens where it passed none. A variable
/// of a type keeps it, and so does an array its kind of elements: a script's array stays one that the script can read.
void store_into_variable(const Value& value, VARIANT& argument);

/// The object behind an interface; Nothing for null.
Object object_of_dispatch(IDispatch* dispatch);
/// A counted interface to an object; null for Nothing.
IDispatch* dispatch_of_object(const Object& object);

}  // namespace korvane::automation
