// The one exception type of the library: an automation error with number, source and description.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "korvane/export.h"

namespace korvane {

/// Raised by every public member that fails. Callers match on `number` and `source`.
class KORVANE_API Error : public std::exception {
public:
    Error(std::int32_t number, std::string source, std::string description)
        : number_(number), source_(std::move(source)), description_(std::move(description)) {}

    std::int32_t number() const noexcept { return number_; }
    const std::string& source() const noexcept { return source_; }
    const std::string& description() const noexcept { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

private:
    std::int32_t number_;
    std::string source_;
    std::string description_;
};

/// Numbers that the library raises. Small negative numbers are its own, positive ones are the automation runtime's.
namespace error_number {
inline constexpr std::int32_t user_aborted = 1;
inline constexpr std::int32_t invalid_call = 5;
inline constexpr std::int32_t overflow = 6;
inline constexpr std::int32_t subscript = 9;
inline constexpr std::int32_t division_by_zero = 11;
inline constexpr std::int32_t type_mismatch = 13;
inline constexpr std::int32_t object_not_set = 91;
inline constexpr std::int32_t routine_detected = -1;
inline constexpr std::int32_t polarity_timeout = -8;
inline constexpr std::int32_t setpoint_not_reached = -807;
inline constexpr std::int32_t invalid_spectrum = -821;
inline constexpr std::int32_t preferences_unavailable = -901;
inline constexpr std::int32_t file_or_element = -904;
inline constexpr std::int32_t group_node = -905;
inline constexpr std::int32_t group_not_permitted = -906;
}  // namespace error_number

/// Runtime faults with their standard texts; `detail`, when given, names the item.
[[noreturn]] KORVANE_API void raise_runtime_fault(std::int32_t number, const std::string& detail = {});

}  // namespace korvane
