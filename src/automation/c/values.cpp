#include "automation/c/values.h"

#include <algorithm>

#include "automation/records.h"
#include "frame/routine.h"

namespace korvane::automation::c {

namespace {

thread_local Error last_error(0, "", "");

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
    return make_record(record_descriptions()[static_cast<std::size_t>(value.element)],
                       &given(static_cast<const char*>(value.as.data), "the record"));
}

template <class T>
Array::Storage numbers_from(const korvane_value& value) {
    const auto* const numbers = static_cast<const T*>(value.as.data);
    return std::make_shared<const std::vector<T>>(numbers, numbers + value.count);
}

Array::Storage storage_from(const korvane_value& value) {
    if (value.count > 0) given(static_cast<const char*>(value.as.data), "the array");
    if (value.element == KORVANE_INT16) return numbers_from<std::int16_t>(value);
    if (value.element == KORVANE_INT32) return numbers_from<std::int32_t>(value);
    if (value.element == KORVANE_SINGLE) return numbers_from<float>(value);
    if (value.element == KORVANE_DOUBLE) return numbers_from<double>(value);
    constexpr int32_t as_values[]{KORVANE_EMPTY, KORVANE_TEXT, KORVANE_OBJECT, KORVANE_RECORD};
    if (!std::ranges::count(as_values, value.element))
        raise_runtime_fault(error_number::type_mismatch, "array elements of kind ", value.element);
    std::vector<Value> elements;
    std::ranges::transform(std::span(value.as.values, value.count), std::back_inserter(elements), value_from);
    return std::make_shared<const std::vector<Value>>(std::move(elements));
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

/// How a value of each kind is read.
constexpr Value (*readers[])(const korvane_value& value){
    [](const korvane_value&) -> Value { return Empty{}; },
    [](const korvane_value&) -> Value { return Missing{}; },
    [](const korvane_value&) -> Value { return Null{}; },
    [](const korvane_value& value) -> Value { return value.as.integer != 0; },
    [](const korvane_value& value) -> Value { return Value(value.as.integer).as_int16(); },
    [](const korvane_value& value) -> Value { return value.as.integer; },
    [](const korvane_value& value) -> Value { return static_cast<float>(value.as.number); },
    [](const korvane_value& value) -> Value { return value.as.number; },
    [](const korvane_value& value) -> Value { return Date{value.as.number}; },
    [](const korvane_value& value) -> Value { return text_from(value); },
    [](const korvane_value& value) -> Value { return value.as.object == 0 ? Object{} : object_of(value.as.object); },
    [](const korvane_value& value) -> Value { return record_from(value); },
    [](const korvane_value& value) -> Value { return array_from_c(value); }};
static_assert(std::size(readers) == KORVANE_ARRAY + 1);

template <class T, class... Kinds>
constexpr int32_t place_among(std::type_identity<std::variant<Kinds...>>) {
    int32_t place = 0;
    static_cast<void>(((std::is_same_v<T, Kinds> ? false : ++place > 0) && ...));
    return place;
}
template <class T>
constexpr int32_t kind_of = place_among<T>(std::type_identity<Value::Content>());

/// How C sees what `kept` keeps alive.
struct Shown {
    Kept& kept;

    korvane_value operator()(const Value& value) const { return std::visit(*this, value.content()); }
    template <class T>
    korvane_value operator()(const T& content) const {
        korvane_value value{};
        value.kind = kind_of<T>;
        if constexpr (std::is_integral_v<T>) {
            value.as.integer = content;
        } else if constexpr (std::is_floating_point_v<T>) {
            value.as.number = static_cast<double>(content);
        } else if constexpr (std::is_same_v<T, Date>) {
            value.as.number = content.days;
        } else if constexpr (std::is_same_v<T, std::string>) {
            value.as.text = content.c_str();
            value.count = content.size();
        } else if constexpr (std::is_same_v<T, Object>) {
            if (content) kept.objects.push_back(value.as.object = handles().add(content));
        } else if constexpr (std::is_same_v<T, Record>) {
            value.element = static_cast<int32_t>(content.index());
            value.as.data = data_of(content);
        } else if constexpr (std::is_same_v<T, Array>) {
            static constexpr korvane_bound none{};  // null stands for one dimension
            value.count = content.size();
            value.rank = content.rank();
            value.bounds = value.rank == 0 ? &none : reinterpret_cast<const korvane_bound*>(content.bounds().data());
            std::visit([&](const auto& elements) { show_elements(value, elements); }, content.storage());
        }
        return value;
    }

private:
    template <class T>
    void show_elements(korvane_value& value, const Array::Elements<T>& elements) const {
        if constexpr (!std::is_same_v<T, Value>) value.element = kind_of<T>;
        if (!elements) return;
        if constexpr (std::is_arithmetic_v<T>) {
            value.as.data = elements->data();
        } else {
            auto shown = std::make_unique<korvane_value[]>(elements->size());
            std::ranges::transform(*elements, shown.get(), *this);
            value.as.values = shown.get();
            kept.elements.push_back(std::move(shown));
        }
    }
};

}  // namespace

Kept::~Kept() {
    for (const korvane_handle object : objects) handles().free(object);
}

korvane_handle Handles::add(Content content) {
    const std::lock_guard lock(mutex_);
    contents_.emplace(++last_, std::move(content));
    return last_;
}

Handles::Content Handles::any(korvane_handle handle) const {
    const std::lock_guard lock(mutex_);
    const auto known = contents_.find(handle);
    if (known == contents_.end())
        raise_runtime_fault(error_number::object_not_set,
                            "handle " + std::to_string(handle) + (handle == 0 ? "" : ", which is none or was freed"));
    return known->second;
}

void Handles::free(korvane_handle handle) noexcept {
    // What goes may free handles in its turn.
    std::unique_lock lock(mutex_);
    const auto content = contents_.extract(handle);
    lock.unlock();
}

Handles& handles() {
    static Handles& all = *new Handles;
    return all;
}

int32_t note_error() noexcept {
    last_error = current_error();
    return 1 + static_cast<int32_t>(last_error.kind());
}

Value value_from(const korvane_value& value) {
    if (value.kind >= 0 && value.kind < static_cast<int32_t>(std::size(readers))) return readers[value.kind](value);
    raise_runtime_fault(error_number::type_mismatch, "a value of kind ", value.kind);
}

void give(korvane_value& place, Value value) {
    const auto kept = std::make_shared<Kept>();
    kept->value = std::move(value);
    korvane_value shown = Shown{*kept}(kept->value);
    if (shown.kind >= KORVANE_TEXT) shown.owner = handles().add(kept);
    korvane_clear(&place);
    place = shown;
}

}  // namespace korvane::automation::c

using namespace korvane;
using namespace korvane::automation::c;

extern "C" {

void korvane_last_error(korvane_error* error) {
    if (!error) return;
    *error = {last_error.number(), 1 + static_cast<int32_t>(last_error.kind()), last_error.source().c_str(),
              last_error.description().c_str(), last_error.cause().c_str()};
}

int32_t korvane_copy(korvane_handle handle, korvane_handle* copy) {
    return guarded([&] { given(copy, "copy") = handles().add(handles().any(handle)); });
}

void korvane_free(korvane_handle handle) {
    handles().free(handle);
}

void korvane_clear(korvane_value* value) {
    if (!value) return;
    handles().free(value->owner);
    *value = {};
}

int32_t korvane_token(korvane_handle* token) {
    return guarded([&] { given(token, "token") = handles().add(AbortToken()); });
}

int32_t korvane_abort(korvane_handle token) {
    return guarded([&] { handles().get<AbortToken>(token, "an abort token").abort(); });
}

}  // extern "C"
