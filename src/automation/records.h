// The records that cross the automation interface: names, identifiers and fields.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "automation/declared_type.h"
#include "korvane/automation_value.h"

namespace korvane::automation {

struct Field {
    std::string_view name;
    TypeKind kind;  ///< real or long_integer
    std::size_t offset;
};

struct RecordDescription {
    std::string_view name;
    std::size_t size;
    std::string_view guid;
    std::string_view help;
    std::vector<Field> fields;
};

/// The records in the order of `Record`'s alternatives, then the one that no member takes or returns.
std::span<const RecordDescription> record_descriptions();
/// Null for an unknown name.
const RecordDescription* find_record(std::string_view name);
const RecordDescription& description_of(const Record& record);

/// A record of a description that `Record` has an alternative for, all fields 0.
Record make_record(const RecordDescription& description);
/// The record whose fields are the elements. Error 13 where there are not as many.
Record record_from_array(std::string_view name, const Array& array);
/// The fields as an array.
Array array_of(const Record& record);
/// The record's memory.
void* data_of(Record& record);
const void* data_of(const Record& record);

Value field_value(const Record& record, const Field& field);
/// Errors of the conversion.
void set_field(Record& record, const Field& field, const Value& value);

}  // namespace korvane::automation
