// The records that cross the automation interface: names, identifiers and fields.
#pragma once

#include <span>
#include <vector>

#include "automation/declared_type.h"
#include "korvane/automation_value.h"

namespace korvane::automation {

/// A record is a row of fields of one kind.
struct RecordDescription {
    std::string_view name;
    std::size_t size;
    std::string_view guid;
    std::string_view help;
    TypeKind kind;  ///< of every field: real or long_integer
    std::vector<std::string_view> fields;
};

/// The records in the order of `Record`'s alternatives, then the one that no member takes or returns.
std::span<const RecordDescription> record_descriptions();
/// Null for an unknown name.
const RecordDescription* find_record(std::string_view name);
const RecordDescription& description_of(const Record& record);

/// A record of a description that `Record` has an alternative for: what lies in memory, or all fields 0.
Record make_record(const RecordDescription& description, const void* memory = nullptr);
/// The record whose fields are the elements. Error 13 where there are not as many, and errors of the conversion.
Record record_from_array(const RecordDescription& description, const Array& array);
/// The fields as an array.
Array array_of(const Record& record);
/// The record's memory.
const void* data_of(const Record& record);

}  // namespace korvane::automation
