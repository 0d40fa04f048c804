// Records between automation on Windows and the portable ones.
#pragma once

#include "automation/com/com_basics.h"
#include "automation/records.h"

namespace korvane::automation {

/// The system's description of a record; null for one that the type library does not have. Lives as long as the
/// process.
IRecordInfo* record_info_of(const RecordDescription& description);
/// The description of a record by what the system says of it. Error 13 for a record that is none of the library's.
const RecordDescription& description_of(IRecordInfo& info);

/// The record in a VARIANT of kind VT_RECORD.
Record record_of(const void* memory, IRecordInfo* info);

/// Where this module was loaded from.
std::wstring module_path();

/// The type library inside this module. Error -2147319779 where it cannot be loaded.
ITypeLib& type_library();

}  // namespace korvane::automation
