// The values of automation: what crosses a late-bound call. A variant holds exactly one of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "korvane/export.h"
#include "korvane/records.h"

namespace korvane::automation {

class LateBound;
class Value;

// Numbers under which late binding itself raises errors, beside those of `error_number`; scripts know them.
inline constexpr std::int32_t array_locked = 10;
inline constexpr std::int32_t invalid_use_of_null = 94;
inline constexpr std::int32_t object_required = 424;
inline constexpr std::int32_t cannot_create = 429;
inline constexpr std::int32_t no_such_member = 438;
inline constexpr std::int32_t no_such_argument = 448;
inline constexpr std::int32_t argument_not_optional = 449;
inline constexpr std::int32_t too_many_arguments = 450;

/// The variant that was never given a value; converts to 0, "" and False.
using Empty = std::monostate;
/// An argument left out.
struct Missing {
    friend bool operator==(Missing, Missing) = default;
};
/// "No valid data": converts to nothing.
struct Null {
    friend bool operator==(Null, Null) = default;
};
/// Days since 30 December 1899, the fraction being the time of day.
struct Date {
    double days = 0;
    friend bool operator==(Date, Date) = default;
};

/// A reference to an automation object; null is Nothing.
using Object = std::shared_ptr<LateBound>;

/// A record, as the kind that it is.
using Record = std::variant<PeakInfo, CalibrationCoefficients, CalibrationSettings>;

struct ArrayBound {
    std::int32_t lower = 0;
    std::size_t count = 0;
    friend bool operator==(ArrayBound, ArrayBound) = default;
};

/// An array of any rank and lower bounds. Elements are shared and immutable; the last index runs fastest.
class KORVANE_API Array {
public:
    template <class T>
    using Elements = std::shared_ptr<const std::vector<T>>;
    using Storage = std::variant<Elements<Value>, Elements<std::int16_t>, Elements<std::int32_t>, Elements<float>,
                                 Elements<double>, Elements<std::string>, Elements<Object>, Elements<Record>>;

    /// One dimension.
    template <class T>
    explicit Array(std::vector<T> elements, std::int32_t lower_bound = 0)
        : bounds_{{lower_bound, elements.size()}},
          storage_(std::make_shared<const std::vector<T>>(std::move(elements))) {}
    /// Error 9 where the bounds do not hold as many elements as there are.
    Array(std::vector<ArrayBound> bounds, Storage storage);

    std::size_t rank() const noexcept { return bounds_.size(); }
    const std::vector<ArrayBound>& bounds() const noexcept { return bounds_; }
    const Storage& storage() const noexcept { return storage_; }
    /// Number of elements, all dimensions together.
    std::size_t size() const noexcept;
    /// Element by its place in the storage; error 9 outside.
    Value element(std::size_t place) const;

    /// Same bounds, same kind of elements, same elements.
    friend KORVANE_API bool operator==(const Array& left, const Array& right);

private:
    std::vector<ArrayBound> bounds_;
    Storage storage_;
};

namespace detail {
template <class T, class Variant>
inline constexpr bool alternative_of = false;
template <class T, class... Kinds>
inline constexpr bool alternative_of<T, std::variant<Kinds...>> = (std::is_same_v<T, Kinds> || ...);
}  // namespace detail

class KORVANE_API Value {
public:
    using Content = std::variant<Empty, Missing, Null, bool, std::int16_t, std::int32_t, float, double, Date,
                                 std::string, Object, Record, Array>;

    Value() = default;
    template <class T>
    requires(detail::alternative_of<std::remove_cvref_t<T>, Content>) Value(T&& value)  // NOLINT: meant to convert
        : content_(std::in_place_type<std::remove_cvref_t<T>>, std::forward<T>(value)) {}
    Value(const char* text) : content_(std::string(text)) {}                    // NOLINT: meant to convert
    Value(const PeakInfo& record) : content_(Record(record)) {}                 // NOLINT
    Value(const CalibrationCoefficients& record) : content_(Record(record)) {}  // NOLINT
    Value(const CalibrationSettings& record) : content_(Record(record)) {}      // NOLINT

    const Content& content() const noexcept { return content_; }
    template <class T>
    bool holds() const noexcept {
        return std::holds_alternative<T>(content_);
    }
    template <class T>
    const T* get_if() const noexcept {
        return std::get_if<T>(&content_);
    }

    // Conversions by the rules of automation. Error 13 where there is none, 94 for Null, 449 for a missing argument, 6
    // where the value is too large. Texts are read and written by the current locale's rules.
    double as_double() const;
    float as_single() const;
    std::int32_t as_int32() const;  ///< halves to the even neighbour
    std::int16_t as_int16() const;
    /// Anything but 0 is true; texts are "True", "False" (in any case) or numbers.
    bool as_boolean() const;
    std::string as_text() const;
    /// Nothing for Empty too; error 424 for any other value.
    Object as_object() const;
    /// Error 13 where the value holds no array.
    const Array& as_array() const;

    /// What the value holds, in a word: "Double", "String", "Nothing", "Array", ...
    std::string kind_name() const;
    /// The value for a message: numbers, dates and texts (cut where they are long) as they are, others as their kind.
    std::string shown() const;

    friend bool operator==(const Value&, const Value&) = default;

private:
    Content content_;
};

}  // namespace korvane::automation
