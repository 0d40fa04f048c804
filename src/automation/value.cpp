// Conversions of values, arrays, and the records among them.
#include "korvane/automation_value.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>

#include "automation/records.h"
#include "korvane/automation.h"
#include "platform/automation_arithmetic.h"
#include "platform/text.h"

namespace korvane::automation {

namespace {

[[noreturn]] void refuse(const Value& value, const char* wanted) {
    if (value.holds<Null>()) raise_runtime_fault(invalid_use_of_null);
    if (value.holds<Missing>()) raise_runtime_fault(argument_not_optional);
    raise_runtime_fault(error_number::type_mismatch, value.kind_name() + " is no " + wanted);
}

/// The number of a value that stands for one; nothing for texts and what has no number.
std::optional<double> number_of(const Value& value) {
    return std::visit(
        [](const auto& content) -> std::optional<double> {
            using Kind = std::remove_cvref_t<decltype(content)>;
            if constexpr (std::is_same_v<Kind, Empty>) return 0.0;
            if constexpr (std::is_same_v<Kind, bool>) return content ? -1.0 : 0.0;
            if constexpr (std::is_arithmetic_v<Kind>) return static_cast<double>(content);
            if constexpr (std::is_same_v<Kind, Date>) return content.days;
            return std::nullopt;
        },
        value.content());
}

constexpr double first_day = -657434;  // 1 January 100
constexpr double day_after_last = 2958466;

/// A number's text with the current locale's decimal separator in the place of the point.
std::string localised(std::string number) {
    const auto point = number.find('.');
    if (point != std::string::npos && number.find('#') == std::string::npos)
        number.replace(point, 1, decimal_separator());
    return number;
}

/// The system's general date format. Error 13 for a date outside the years 100 to 9999.
std::string text_of_date(Date date) {
    if (!(date.days >= first_day && date.days < day_after_last))
        raise_runtime_fault(error_number::type_mismatch, number_text(date.days) + " is no date");
    using namespace std::chrono;
    // The fraction counts forward from midnight, for days before the first one too.
    const double day = std::trunc(date.days);
    const seconds since_midnight(std::lround(std::fabs(date.days - day) * seconds(days(1)).count()));
    const auto time = sys_days(year(1899) / December / 30) + days(static_cast<int>(day)) + since_midnight;
    const year_month_day calendar(floor<days>(time));
    const hh_mm_ss clock(time - floor<days>(time));
    return general_date_text(
        {static_cast<int>(calendar.year()), static_cast<int>(static_cast<unsigned>(calendar.month())),
         static_cast<int>(static_cast<unsigned>(calendar.day())), static_cast<int>(clock.hours().count()),
         static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count())});
}

std::size_t element_count(const std::vector<ArrayBound>& bounds) {
    std::size_t count = bounds.empty() ? 0 : 1;
    for (const ArrayBound& bound : bounds) count *= bound.count;
    return count;
}

template <class R, class T, T R::*... fields>
RecordDescription describe_record(std::string_view guid, std::string_view help) {
    static_assert(sizeof(R) == sizeof...(fields) * sizeof(T));
    const TypeKind kind = std::is_same_v<T, double> ? TypeKind::real : TypeKind::long_integer;
    return {type_name<R>, sizeof(R), guid, help, kind, {value_name<fields>...}};
}

}  // namespace

Array::Array(std::vector<ArrayBound> bounds, Storage storage)
    : bounds_(std::move(bounds)), storage_(std::move(storage)) {
    if (element_count(bounds_) != size())
        raise_runtime_fault(error_number::subscript, "bounds of ", element_count(bounds_), " elements for ", size());
}

std::size_t Array::size() const noexcept {
    return std::visit([](const auto& elements) { return elements ? elements->size() : 0; }, storage_);
}

Value Array::element(std::size_t place) const {
    return std::visit(
        [place](const auto& elements) -> Value {
            if (!elements || place >= elements->size()) raise_runtime_fault(error_number::subscript, "element ", place);
            return (*elements)[place];
        },
        storage_);
}

bool operator==(const Array& left, const Array& right) {
    if (left.bounds_ != right.bounds_ || left.storage_.index() != right.storage_.index()) return false;
    return std::visit(
        [&right](const auto& elements) {
            const auto& others = std::get<std::remove_cvref_t<decltype(elements)>>(right.storage_);
            return elements == others || (elements && others && *elements == *others);
        },
        left.storage_);
}

double Value::as_double() const {
    if (const auto* number = get_if<double>()) return *number;
    if (const auto number = number_of(*this)) return *number;
    if (const auto* text = get_if<std::string>()) return parse_double(*text);
    refuse(*this, "number");
}

float Value::as_single() const {
    if (const auto* number = get_if<float>()) return *number;
    const double number = as_double();
    const auto single = static_cast<float>(number);
    if (std::isfinite(number) && !std::isfinite(single))
        raise_runtime_fault(error_number::overflow, number_text(number));
    return single;
}

std::int32_t Value::as_int32() const {
    if (const auto* number = get_if<std::int32_t>()) return *number;
    return to_int32(as_double());
}

std::int16_t Value::as_int16() const {
    return to_int16(as_double());
}

bool Value::as_boolean() const {
    if (const auto* truth = get_if<bool>()) return *truth;
    if (const auto* text = get_if<std::string>()) {
        const std::string_view word = trimmed(*text, " ");
        if (equal_but_for_case(word, "True")) return true;
        if (equal_but_for_case(word, "False")) return false;
    }
    return as_double() != 0;
}

std::string Value::as_text() const {
    if (const auto* text = get_if<std::string>()) return *text;
    if (const auto* truth = get_if<bool>()) return *truth ? "True" : "False";
    if (const auto* single = get_if<float>()) return localised(number_text(*single));
    if (const auto* date = get_if<Date>()) return text_of_date(*date);
    if (holds<Empty>()) return {};
    if (const auto number = number_of(*this)) return localised(number_text(*number));
    refuse(*this, "text");
}

Object Value::as_object() const {
    if (const auto* object = get_if<Object>()) return *object;
    if (holds<Empty>()) return nullptr;
    if (holds<Null>() || holds<Missing>()) refuse(*this, "object");
    raise_runtime_fault(object_required, kind_name() + " is no object");
}

const Array& Value::as_array() const {
    if (const auto* array = get_if<Array>()) return *array;
    refuse(*this, "array");
}

std::string Value::kind_name() const {
    static constexpr std::array names{"Empty",     "a missing argument", "Null",     "a Boolean", "an Integer",
                                      "a Long",    "a Single",           "a Double", "a Date",    "a String",
                                      "an object", "a record",           "an array"};
    static_assert(names.size() == std::variant_size_v<Content>);
    if (const auto* object = get_if<Object>()) return *object ? "an object " + (*object)->class_name() : "Nothing";
    return names[content_.index()];
}

std::string Value::shown() const {
    constexpr std::size_t longest = 60;
    if (holds<Null>() || holds<Missing>() || holds<Object>() || holds<Record>() || holds<Array>()) return kind_name();
    std::string text = holds<Date>() ? number_text(get_if<Date>()->days) : as_text();
    if (text.size() <= longest) return text;
    std::size_t end = longest;
    while (end > 0 && (text[end] & 0xC0) == 0x80) --end;  // not within a UTF-8 character
    return text.substr(0, end) + "...";
}

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
            "Positions of the experiment and the polarity in a spectrum's metadata.")};
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
