// The one exception type of the library: an automation error with number, source, description and a kind.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "korvane/export.h"

namespace korvane {

/// What went wrong, for callers that decide by it: the call itself, a file or its content, the instrument, a wait that
/// ended without its condition, the user's request to stop, or a fault of the process (memory, a bug).
enum class ErrorKind { usage, configuration, instrument, time_out, aborted, internal };

/// The kind that errors of this number have unless they say otherwise; `instrument` for numbers nobody here knows,
/// which are the instrument layer's own.
KORVANE_API ErrorKind usual_error_kind(std::int32_t number) noexcept;

/// Where the automation host finds help; travels with the error unchanged.
struct ErrorHelp {
    std::string file;
    std::int32_t context = 0;
    friend bool operator==(const ErrorHelp&, const ErrorHelp&) = default;
};

/// Raised by every public member that fails. Callers match on `number` and `source`, or ask for the kind.
class KORVANE_API Error : public std::exception {
public:
    Error(std::int32_t number, std::string source, std::string description)
        : Error(number, std::move(source), std::move(description), usual_error_kind(number)) {}
    Error(std::int32_t number, std::string source, std::string description, ErrorKind kind, ErrorHelp help = {})
        : number_(number),
          kind_(kind),
          source_(std::move(source)),
          description_(std::move(description)),
          help_(std::move(help)) {}

    std::int32_t number() const noexcept { return number_; }
    ErrorKind kind() const noexcept { return kind_; }
    const std::string& source() const noexcept { return source_; }
    const std::string& description() const noexcept { return description_; }
    const ErrorHelp& help() const noexcept { return help_; }
    const char* what() const noexcept override { return description_.c_str(); }

    /// What lies behind it, where number and description are fixed by a rule and cannot say so; often empty.
    const std::string& cause() const noexcept { return cause_; }

    /// The same error with another description.
    Error described(std::string description) const {
        Error same(*this);
        same.description_ = std::move(description);
        return same;
    }
    /// The same error with a cause.
    Error caused_by(std::string cause) const {
        Error same(*this);
        same.cause_ = std::move(cause);
        return same;
    }

private:
    std::int32_t number_;
    ErrorKind kind_;
    std::string source_;
    std::string description_;
    std::string cause_;
    ErrorHelp help_;
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
