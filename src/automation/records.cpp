#include "automation/records.h"

#include <cstring>

#include "automation/text_conversion.h"

namespace korvane::automation {

namespace {

#define KORVANE_REAL(record, name)                    \
    Field {                                           \
#name, TypeKind::real, offsetof(record, name) \
    }
#define KORVANE_LONG(record, name)                            \
    Field {                                                   \
#name, TypeKind::long_integer, offsetof(record, name) \
    }

constexpr std::array peak_info_fields{KORVANE_REAL(PeakInfo, pkApexX),      KORVANE_REAL(PeakInfo, pkStart),
                                      KORVANE_REAL(PeakInfo, pkArea),       KORVANE_REAL(PeakInfo, pkCentroid),
                                      KORVANE_REAL(PeakInfo, pkWidth),      KORVANE_REAL(PeakInfo, pkHeight),
                                      KORVANE_REAL(PeakInfo, pkResolution), KORVANE_REAL(PeakInfo, pkEnd)};
using Coefficients = CalibrationCoefficients;
constexpr std::array coefficient_fields{KORVANE_REAL(Coefficients, A), KORVANE_REAL(Coefficients, B),
                                        KORVANE_REAL(Coefficients, C), KORVANE_REAL(Coefficients, D),
                                        KORVANE_REAL(Coefficients, E), KORVANE_REAL(Coefficients, F),
                                        KORVANE_REAL(Coefficients, G), KORVANE_REAL(Coefficients, H)};
constexpr std::array settings_fields{KORVANE_LONG(CalibrationSettings, CalReserved1),
                                     KORVANE_LONG(CalibrationSettings, CalTraditionalWeighting),
                                     KORVANE_LONG(CalibrationSettings, CalPolynomialWeighting)};
constexpr std::array meta_index_fields{KORVANE_LONG(META_INDEX, lExpIndex), KORVANE_LONG(META_INDEX, lPolarityIndex)};
#undef KORVANE_REAL
#undef KORVANE_LONG

constexpr std::array descriptions{
    RecordDescription{"PeakInfo", "a14aaa91-d8e0-4673-ae6a-9cd21817e382", peak_info_fields, sizeof(PeakInfo),
                      "A peak. Positions and width in nanoseconds or amu, area in counts x samples, height in counts."},
    RecordDescription{"CalibrationCoefficients", "54bdca50-d788-4d33-8648-a88ee546f73a", coefficient_fields,
                      sizeof(CalibrationCoefficients), "m = (A (t - B))^2 + used terms c t^p."},
    RecordDescription{"CalibrationSettings", "f4c01e94-bae5-4115-a7d6-44586b3936c9", settings_fields,
                      sizeof(CalibrationSettings), "Settings of a mass-time calibration."},
    RecordDescription{"META_INDEX", "8eba473b-8fb5-4956-b0ae-47d241d3f0d1", meta_index_fields, sizeof(META_INDEX),
                      "Positions of the experiment and the polarity in a spectrum's metadata."},
};
static_assert(descriptions.size() == std::variant_size_v<Record> + 1);

}  // namespace

std::span<const RecordDescription> record_descriptions() {
    return descriptions;
}

const RecordDescription* find_record(std::string_view name) {
    for (const RecordDescription& description : descriptions)
        if (same_name(description.name, name)) return &description;
    return nullptr;
}

const RecordDescription& description_of(const Record& record) {
    return descriptions[record.index()];
}

Record make_record(const RecordDescription& description) {
    switch (&description - descriptions.data()) {
        case 0:
            return PeakInfo{};
        case 1:
            return CalibrationCoefficients{};
        case 2:
            return CalibrationSettings{};
        default:
            raise_runtime_fault(error_number::type_mismatch, "record " + std::string(description.name));
    }
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
    return std::visit([](const auto& content) -> const void* { return &content; }, record);
}

Value field_value(const Record& record, const Field& field) {
    const char* const place = static_cast<const char*>(data_of(record)) + field.offset;
    if (field.kind == TypeKind::real) {
        double number = 0;
        std::memcpy(&number, place, sizeof number);
        return number;
    }
    std::int32_t number = 0;
    std::memcpy(&number, place, sizeof number);
    return number;
}

void set_field(Record& record, const Field& field, const Value& value) {
    char* const place = static_cast<char*>(data_of(record)) + field.offset;
    if (field.kind == TypeKind::real) {
        const double number = value.as_double();
        std::memcpy(place, &number, sizeof number);
    } else {
        const std::int32_t number = value.as_int32();
        std::memcpy(place, &number, sizeof number);
    }
}

}  // namespace korvane::automation
