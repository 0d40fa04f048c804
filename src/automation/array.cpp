#include <algorithm>

#include "korvane/automation_value.h"

namespace korvane::automation {

namespace {

std::size_t element_count(const std::vector<ArrayBound>& bounds) {
    std::size_t count = bounds.empty() ? 0 : 1;
    for (const ArrayBound& bound : bounds) count *= bound.count;
    return count;
}

[[noreturn]] void subscript_fault(const std::string& detail) {
    raise_runtime_fault(error_number::subscript, detail);
}

}  // namespace

Array::Array(std::vector<ArrayBound> bounds, Storage storage)
    : bounds_(std::move(bounds)), storage_(std::move(storage)) {
    if (element_count(bounds_) != size())
        subscript_fault("bounds of " + std::to_string(element_count(bounds_)) + " elements for " +
                        std::to_string(size()));
}

std::size_t Array::size() const noexcept {
    return std::visit([](const auto& elements) { return elements ? elements->size() : 0; }, storage_);
}

Value Array::element(std::size_t place) const {
    return std::visit(
        [place](const auto& elements) -> Value {
            if (!elements || place >= elements->size()) subscript_fault("element " + std::to_string(place));
            return (*elements)[place];
        },
        storage_);
}

Value Array::at(std::span<const std::int32_t> indexes) const {
    if (indexes.size() != rank())
        subscript_fault(std::to_string(indexes.size()) + " indexes of an array of rank " + std::to_string(rank()));
    std::size_t place = 0;
    for (std::size_t dimension = 0; dimension < rank(); ++dimension) {
        const ArrayBound& bound = bounds_[dimension];
        const auto offset = static_cast<std::int64_t>(indexes[dimension]) - bound.lower;
        if (offset < 0 || offset >= static_cast<std::int64_t>(bound.count))
            subscript_fault("index " + std::to_string(indexes[dimension]));
        place = place * bound.count + static_cast<std::size_t>(offset);
    }
    return element(place);
}

Value Array::at(std::initializer_list<std::int32_t> indexes) const {
    return at(std::span(indexes.begin(), indexes.size()));
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

}  // namespace korvane::automation
