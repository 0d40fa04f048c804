#include "automation/c/values.h"

#include <cstring>

#include "automation/records.h"

namespace korvane::automation::c {

namespace {

static_assert(std::is_same_v<std::variant_alternative_t<KORVANE_ARRAY, Value::Content>, Array> &&
              std::variant_size_v<Value::Content> == KORVANE_ARRAY + 1);
static_assert(sizeof(korvane_peak) == sizeof(PeakInfo) && sizeof(korvane_settings) == sizeof(CalibrationSettings) &&
              sizeof(korvane_coefficients) == sizeof(CalibrationCoefficients));
static_assert(sizeof(korvane_bound) == sizeof(ArrayBound) &&
              offsetof(korvane_bound, count) == offsetof(ArrayBound, count));

/// More dimensions than automation's own arrays can have.
constexpr std::size_t most_dimensions = 60;

std::string text_from(const korvane_value& value) {
    const char* const text = &given(value.as.text, "the text");
    return value.count == KORVANE_TO_ITS_END ? std::string(text) : std::string(text, value.count);
}

Record record_from(const korvane_value& value) {
    if (value.element < 0 || value.element >= static_cast<int32_t>(std::variant_size_v<Record>))
        raise_runtime_fault(error_number::type_mismatch, "record " + std::to_string(value.element));
    const RecordDescription& description = record_descriptions()[static_cast<std::size_t>(value.element)];
    Record record = make_record(description);
    std::memcpy(data_of(record), &given(static_cast<const char*>(value.as.data), "the record"), description.size);
    return record;
}

template <class T, class Take>
Array::Storage elements_from(const korvane_value* values, std::size_t count, Take take) {
    auto elements = std::make_shared<std::vector<T>>();
    elements->reserve(count);
    for (std::size_t place = 0; place < count; ++place) elements->push_back(take(values[place]));
    return Array::Elements<T>(std::move(elements));
}

template <class T>
Array::Storage numbers_from(const korvane_value& value) {
    const auto* const numbers = static_cast<const T*>(value.as.data);
    return std::make_shared<const std::vector<T>>(numbers, numbers + value.count);
}

Array::Storage storage_from(const korvane_value& value) {
    if (value.count > 0) given(static_cast<const char*>(value.as.data), "the array");
    switch (value.element) {
        case KORVANE_INT16:
            return numbers_from<std::int16_t>(value);
        case KORVANE_INT32:
            return numbers_from<std::int32_t>(value);
        case KORVANE_SINGLE:
            return numbers_from<float>(value);
        case KORVANE_DOUBLE:
            return numbers_from<double>(value);
        case KORVANE_EMPTY:
            return elements_from<Value>(value.as.values, value.count, &value_from);
        case KORVANE_TEXT:
            return elements_from<std::string>(value.as.values, value.count,
                                              [](const korvane_value& each) { return value_from(each).as_text(); });
        case KORVANE_OBJECT:
            return elements_from<Object>(value.as.values, value.count,
                                         [](const korvane_value& each) { return value_from(each).as_object(); });
        case KORVANE_RECORD:
            return elements_from<Record>(value.as.values, value.count, &record_from);
    }
    raise_runtime_fault(error_number::type_mismatch, "array elements of kind " + std::to_string(value.element));
}

Array array_from_c(const korvane_value& value) {
    if (!value.bounds) return Array({{0, value.count}}, storage_from(value));
    if (value.rank > most_dimensions)
        raise_runtime_fault(error_number::subscript, std::to_string(value.rank) + " dimensions");
    std::vector<ArrayBound> bounds;
    for (std::size_t dimension = 0; dimension < value.rank; ++dimension)
        bounds.push_back({value.bounds[dimension].lower, value.bounds[dimension].count});
    return Array(std::move(bounds), storage_from(value));
}

korvane_value of_kind(int32_t kind) {
    korvane_value value{};
    value.kind = kind;
    return value;
}

/// How C sees what `kept` keeps alive.
struct Shown {
    Kept& kept;

    korvane_value operator()(Empty) const { return of_kind(KORVANE_EMPTY); }
    korvane_value operator()(Missing) const { return of_kind(KORVANE_MISSING); }
    korvane_value operator()(Null) const { return of_kind(KORVANE_NULL); }
    korvane_value operator()(bool truth) const { return integer(KORVANE_BOOLEAN, truth); }
    korvane_value operator()(std::int16_t number) const { return integer(KORVANE_INT16, number); }
    korvane_value operator()(std::int32_t number) const { return integer(KORVANE_INT32, number); }
    korvane_value operator()(float number) const { return real(KORVANE_SINGLE, static_cast<double>(number)); }
    korvane_value operator()(double number) const { return real(KORVANE_DOUBLE, number); }
    korvane_value operator()(Date date) const { return real(KORVANE_DATE, date.days); }
    korvane_value operator()(const std::string& text) const {
        korvane_value value = of_kind(KORVANE_TEXT);
        value.as.text = text.c_str();
        value.count = text.size();
        return value;
    }
    korvane_value operator()(const Object& object) const {
        korvane_value value = of_kind(KORVANE_OBJECT);
        if (object) kept.objects.push_back(value.as.object = handles().add(object));
        return value;
    }
    korvane_value operator()(const Record& record) const {
        korvane_value value = of_kind(KORVANE_RECORD);
        value.element = static_cast<int32_t>(record.index());
        value.as.data = data_of(record);
        return value;
    }
    korvane_value operator()(const Array& array) const {
        korvane_value value = of_kind(KORVANE_ARRAY);
        value.count = array.size();
        value.rank = array.rank();
        static constexpr korvane_bound none{};  // null stands for one dimension
        value.bounds = value.rank == 0 ? &none : reinterpret_cast<const korvane_bound*>(array.bounds().data());
        std::visit([&](const auto& elements) { elements_of(value, elements); }, array.storage());
        return value;
    }
    korvane_value operator()(const Value& value) const { return std::visit(*this, value.content()); }

private:
    static korvane_value integer(int32_t kind, int32_t number) {
        korvane_value value = of_kind(kind);
        value.as.integer = number;
        return value;
    }
    static korvane_value real(int32_t kind, double number) {
        korvane_value value = of_kind(kind);
        value.as.number = number;
        return value;
    }
    template <class T>
    void elements_of(korvane_value& value, const Array::Elements<T>& elements) const {
        if constexpr (!std::is_same_v<T, Value>) value.element = (*this)(T()).kind;
        if (!elements) return;
        if constexpr (std::is_arithmetic_v<T>) {
            value.as.data = elements->data();
        } else {
            auto& shown = kept.elements.emplace_back(std::make_unique<korvane_value[]>(elements->size()));
            korvane_value* const first = shown.get();
            for (std::size_t place = 0; place < elements->size(); ++place) first[place] = (*this)((*elements)[place]);
            value.as.values = first;
        }
    }
};

}  // namespace

Value value_from(const korvane_value& value) {
    switch (value.kind) {
        case KORVANE_EMPTY:
            return Empty{};
        case KORVANE_MISSING:
            return Missing{};
        case KORVANE_NULL:
            return Null{};
        case KORVANE_BOOLEAN:
            return value.as.integer != 0;
        case KORVANE_INT16:
            return Value(value.as.integer).as_int16();
        case KORVANE_INT32:
            return value.as.integer;
        case KORVANE_SINGLE:
            return static_cast<float>(value.as.number);
        case KORVANE_DOUBLE:
            return value.as.number;
        case KORVANE_DATE:
            return Date{value.as.number};
        case KORVANE_TEXT:
            return text_from(value);
        case KORVANE_OBJECT:
            return value.as.object == 0 ? Object{} : object_of(value.as.object);
        case KORVANE_RECORD:
            return record_from(value);
        case KORVANE_ARRAY:
            return array_from_c(value);
    }
    raise_runtime_fault(error_number::type_mismatch, "a value of kind " + std::to_string(value.kind));
}

void give(korvane_value& place, Value value) {
    const auto kept = std::make_shared<Kept>();
    kept->value = std::move(value);
    korvane_value shown = Shown{*kept}(kept->value);
    if (shown.kind == KORVANE_OBJECT || shown.kind == KORVANE_TEXT || shown.kind >= KORVANE_RECORD)
        shown.owner = handles().add(kept);
    korvane_clear(&place);
    place = shown;
}

}  // namespace korvane::automation::c
