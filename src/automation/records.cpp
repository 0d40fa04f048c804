#include "automation/records.h"

#include <array>
#include <cstring>

#include "automation/type_names.h"
#include "platform/text.h"

namespace korvane::automation {

namespace {

template <auto member, class R, class T>
Field field_of(T R::*) {
    static const R record{};
    const auto* const place = reinterpret_cast<const char*>(&(record.*member));
    return {value_name<member>, std::is_same_v<T, double> ? TypeKind::real : TypeKind::long_integer,
            static_cast<std::size_t>(place - reinterpret_cast<const char*>(&record))};
}

template <class R, auto... members>
RecordDescription describe_record(std::string_view guid, std::string_view help) {
    return {type_name<R>, sizeof(R), guid, help, {field_of<members>(members)...}};
}

}  // namespace

std::span<const RecordDescription> record_descriptions() {
    using Terms = CalibrationCoefficients;
    using Settings = CalibrationSettings;
    static const std::array descriptions{
        describe_record<PeakInfo, &PeakInfo::pkApexX, &PeakInfo::pkStart, &PeakInfo::pkArea, &PeakInfo::pkCentroid,
                        &PeakInfo::pkWidth, &PeakInfo::pkHeight, &PeakInfo::pkResolution, &PeakInfo::pkEnd>(
            "a14aaa91-d8e0-4673-ae6a-9cd21817e382",
            "A peak. Positions and width in nanoseconds or amu, area in counts x samples, height in counts."),
        describe_record<Terms, &Terms::A, &Terms::B, &Terms::C, &Terms::D, &Terms::E, &Terms::F, &Terms::G, &Terms::H>(
            "54bdca50-d788-4d33-8648-a88ee546f73a", "m = (A (t - B))^2 + used terms c t^p."),
        describe_record<Settings, &Settings::CalReserved1, &Settings::CalTraditionalWeighting,
                        &Settings::CalPolynomialWeighting>("f4c01e94-bae5-4115-a7d6-44586b3936c9",
                                                           "Settings of a mass-time calibration."),
        describe_record<META_INDEX, &META_INDEX::lExpIndex, &META_INDEX::lPolarityIndex>(
            "8eba473b-8fb5-4956-b0ae-47d241d3f0d1",
            "Positions of the experiment and the polarity in a spectrum's metadata."),
    };
    static_assert(descriptions.size() == std::variant_size_v<Record> + 1);
    return descriptions;
}

const RecordDescription* find_record(std::string_view name) {
    for (const RecordDescription& description : record_descriptions())
        if (equal_but_for_case(description.name, name)) return &description;
    return nullptr;
}

const RecordDescription& description_of(const Record& record) {
    return record_descriptions()[record.index()];
}

Record make_record(const RecordDescription& description) {
    for (const Record& record : {Record(PeakInfo{}), Record(CalibrationCoefficients{}), Record(CalibrationSettings{})})
        if (&description_of(record) == &description) return record;
    raise_runtime_fault(error_number::type_mismatch, "record " + std::string(description.name));
}

Record record_from_array(std::string_view name, const Array& array) {
    const RecordDescription& description = *find_record(name);
    if (array.rank() != 1 || array.size() != description.fields.size())
        raise_runtime_fault(error_number::type_mismatch, "an array of " + std::to_string(array.size()) +
                                                             " elements is no " + std::string(name) + " record");
    Record record = make_record(description);
    for (std::size_t place = 0; place < array.size(); ++place)
        set_field(record, description.fields[place], array.element(place));
    return record;
}

Array array_of(const Record& record) {
    std::vector<Value> values;
    for (const Field& field : description_of(record).fields) values.push_back(field_value(record, field));
    return Array(std::move(values));
}

void* data_of(Record& record) {
    return std::visit([](auto& content) -> void* { return &content; }, record);
}

const void* data_of(const Record& record) {
    return data_of(const_cast<Record&>(record));
}

Value field_value(const Record& record, const Field& field) {
    const char* const place = static_cast<const char*>(data_of(record)) + field.offset;
    if (field.kind == TypeKind::real) return *reinterpret_cast<const double*>(place);
    return *reinterpret_cast<const std::int32_t*>(place);
}

void set_field(Record& record, const Field& field, const Value& value) {
    char* const place = static_cast<char*>(data_of(record)) + field.offset;
    if (field.kind == TypeKind::real)
        *reinterpret_cast<double*>(place) = value.as_double();
    else
        *reinterpret_cast<std::int32_t*>(place) = value.as_int32();
}

}  // namespace korvane::automation
