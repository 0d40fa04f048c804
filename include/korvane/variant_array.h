// Arrays as automation hands them about: elements, a lower bound, and the state "empty" of a variant that holds no
// array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "korvane/error.h"

namespace korvane {

/// One-dimensional array, or nothing. Elements are shared and immutable, so that copies of a spectrum cost nothing.
/// An array with no elements is not empty in this sense: its upper bound is lower bound - 1.
template <class T>
class VariantArray {
public:
    VariantArray() = default;
    VariantArray(std::vector<T> elements, std::int32_t lower_bound = 0)  // NOLINT: meant to convert
        : elements_(std::make_shared<const std::vector<T>>(std::move(elements))), lower_bound_(lower_bound) {}
    explicit VariantArray(std::shared_ptr<const std::vector<T>> elements, std::int32_t lower_bound = 0)
        : elements_(std::move(elements)), lower_bound_(lower_bound) {}

    bool is_empty() const noexcept { return elements_ == nullptr; }
    std::size_t size() const noexcept { return elements_ ? elements_->size() : 0; }
    void clear() noexcept {
        elements_.reset();
        lower_bound_ = 0;
    }

    /// Error 13 when empty.
    std::int32_t lower_bound() const {
        require_array();
        return lower_bound_;
    }
    /// Highest index; error 13 when empty.
    std::int32_t upper_bound() const {
        require_array();
        return lower_bound_ + static_cast<std::int32_t>(elements_->size()) - 1;
    }
    /// Error 13 when empty, 9 when `index` lies outside the bounds.
    const T& at(std::int32_t index) const {
        require_array();
        const auto offset = static_cast<std::int64_t>(index) - lower_bound_;
        if (offset < 0 || offset >= static_cast<std::int64_t>(elements_->size()))
            raise_runtime_fault(error_number::subscript, "index " + std::to_string(index));
        return (*elements_)[static_cast<std::size_t>(offset)];
    }
    /// All elements from the lower bound on; no elements when empty.
    std::span<const T> elements() const noexcept {
        return elements_ ? std::span<const T>(*elements_) : std::span<const T>();
    }
    /// The shared storage itself; null when empty.
    const std::shared_ptr<const std::vector<T>>& storage() const noexcept { return elements_; }

private:
    void require_array() const {
        if (!elements_) raise_runtime_fault(error_number::type_mismatch);
    }

    std::shared_ptr<const std::vector<T>> elements_;
    std::int32_t lower_bound_ = 0;
};

/// Two-dimensional array, both lower bounds 0; rows are the first index.
template <class T>
class VariantMatrix {
public:
    VariantMatrix() = default;
    VariantMatrix(std::size_t rows, std::size_t columns) : rows_(rows), columns_(columns), elements_(rows * columns) {}

    std::size_t rows() const noexcept { return rows_; }
    std::size_t columns() const noexcept { return columns_; }
    /// Error 9 outside the bounds.
    T& at(std::size_t row, std::size_t column) { return elements_[offset(row, column)]; }
    const T& at(std::size_t row, std::size_t column) const { return elements_[offset(row, column)]; }

private:
    std::size_t offset(std::size_t row, std::size_t column) const {
        if (row >= rows_ || column >= columns_)
            raise_runtime_fault(error_number::subscript,
                                "index (" + std::to_string(row) + ", " + std::to_string(column) + ")");
        return row * columns_ + column;
    }

    std::size_t rows_ = 0;
    std::size_t columns_ = 0;
    std::vector<T> elements_;
};

}  // namespace korvane
