#include "automation/records.h"

#include <array>
#include <cstring>

#include "platform/text.h"

namespace korvane::automation {

namespace {

template <class R, class T, T R::*... fields>
RecordDescription describe_record(std::string_view guid, std::string_view help) {
    static_assert(sizeof(R) == sizeof...(fields) * sizeof(T));
    const TypeKind kind = std::is_same_v<T, double> ? TypeKind::real : TypeKind::long_integer;
    return {type_name<R>, sizeof(R), guid, help, kind, {value_name<fields>...}};
}

}  // namespace

std::span<const RecordDescription> record_descriptions() {
    using Terms = CalibrationCoefficients;
    using Settings = CalibrationSettings;
    static const std::array descriptions{
        describe_record<PeakInfo, double, &PeakInfo::pkApexX, &PeakInfo::pkStart, &PeakInfo::pkArea,
                        &PeakInfo::pkCentroid, &PeakInfo::pkWidth, &PeakInfo::pkHeight, &PeakInfo::pkResolution,
                        &PeakInfo::pkEnd>(
            "a14aaa91-d8e0-4673-ae6a-9cd21817e382",
            "A peak. Positions and width in nanoseconds or amu, area in counts x samples, height in counts."),
        describe_record<Terms, double, &Terms::A, &Terms::B, &Terms::C, &Terms::D, &Terms::E, &Terms::F, &Terms::G,
                        &Terms::H>("54bdca50-d788-4d33-8648-a88ee546f73a", "m = (A (t - B))^2 + used terms c t^p."),
        describe_record<Settings, std::int32_t, &Settings::CalReserved1, &Settings::CalTraditionalWeighting,
                        &Settings::CalPolynomialWeighting>("f4c01e94-bae5-4115-a7d6-44586b3936c9",
                                                           "Settings of a mass-time calibration."),
        describe_record<META_INDEX, std::int32_t, &META_INDEX::lExpIndex, &META_INDEX::lPolarityIndex>(
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

Record make_record(const RecordDescription& description, const void* memory) {
    for (Record record : {Record(PeakInfo{}), Record(CalibrationCoefficients{}), Record(CalibrationSettings{})}) {
        if (&description_of(record) != &description) continue;
        if (memory) std::visit([memory](auto& content) { std::memcpy(&content, memory, sizeof content); }, record);
        return record;
    }
    raise_runtime_fault(error_number::type_mismatch, "record " + std::string(description.name));
}

Record record_from_array(const RecordDescription& description, const Array& array) {
    if (array.rank() != 1 || array.size() != description.fields.size())
        raise_runtime_fault(error_number::type_mismatch, "an array of ", array.size(), " elements is no ",
                            description.name, " record");
    const bool real = description.kind == TypeKind::real;
    std::vector<double> numbers;
    std::vector<std::int32_t> integers;
    for (std::size_t place = 0; place < array.size(); ++place)
        if (real)
            numbers.push_back(array.element(place).as_double());
        else
            integers.push_back(array.element(place).as_int32());
    return make_record(description, real ? static_cast<const void*>(numbers.data()) : integers.data());
}

Array array_of(const Record& record) {
    const RecordDescription& description = description_of(record);
    std::vector<Value> values;
    for (std::size_t place = 0; place < description.fields.size(); ++place)
        if (description.kind == TypeKind::real)
            values.emplace_back(static_cast<const double*>(data_of(record))[place]);
        else
            values.emplace_back(static_cast<const std::int32_t*>(data_of(record))[place]);
    return Array(std::move(values));
}

const void* data_of(const Record& record) {
    return std::visit([](const auto& content) -> const void* { return &content; }, record);
}

}  // namespace korvane::automation
