#include "exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace korvane::program {

namespace {

// Runtime faults carry the library's name as their source.
constexpr std::string_view library = "Korvane";

struct ErrorClass {
    std::int32_t number;
    ExitCode code;
    std::string_view source = {};        // empty: any source
    std::optional<ErrorKind> kind = {};  // nothing: any kind
    std::string_view remark = {};        // what the description does not say
};

// The first row that fits decides; what no row names is the instrument's.
constexpr std::array error_classes{
    ErrorClass{
        error_number::user_aborted, ExitCode::aborted, {}, {}, "the request stands until \"korvane abort reset\""},
    ErrorClass{error_number::invalid_spectrum, ExitCode::check_failed},
    ErrorClass{
        error_number::polarity_timeout, ExitCode::time_out, {}, {}, "no spectrum of the sought polarity within 45 s"},
    ErrorClass{error_number::setpoint_not_reached, ExitCode::time_out},
    // The time-out of a wait for a spectrum has no number of its own.
    ErrorClass{
        error_number::invalid_call, ExitCode::time_out, {}, ErrorKind::time_out, "no populated spectrum within 15 s"},
    ErrorClass{error_number::routine_detected, ExitCode::configuration, "CalMassList"},
    ErrorClass{error_number::type_mismatch, ExitCode::configuration},
    ErrorClass{
        error_number::preferences_unavailable, ExitCode::configuration, {}, {}, "TunePreferences.xml cannot be read"},
    ErrorClass{error_number::file_or_element, ExitCode::configuration},
    ErrorClass{error_number::group_node, ExitCode::configuration},
    ErrorClass{error_number::group_not_permitted,
               ExitCode::configuration,
               {},
               {},
               "this parameter group is not permitted here"},
    ErrorClass{-2147467259, ExitCode::configuration, "XPath"},
    ErrorClass{53, ExitCode::configuration},  // file not found
    ErrorClass{57, ExitCode::configuration},  // device input/output
    ErrorClass{61, ExitCode::configuration},  // disk full
    ErrorClass{70, ExitCode::configuration},  // permission denied
    ErrorClass{75, ExitCode::configuration},  // path or file access
    ErrorClass{7, ExitCode::internal_fault},  // out of memory
    ErrorClass{51, ExitCode::internal_fault},
};

ErrorClass class_of(const Error& error) {
    const auto* const row = std::find_if(error_classes.begin(), error_classes.end(), [&](const ErrorClass& known) {
        return known.number == error.number() && (known.source.empty() || known.source == error.source()) &&
               (!known.kind || *known.kind == error.kind());
    });
    return row == error_classes.end() ? ErrorClass{error.number(), ExitCode::instrument} : *row;
}

// The operator's messages have several lines: sentences follow each other, other lines are set apart.
std::string joined_lines(std::string_view text) {
    std::string joined;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view line = text.substr(0, end);
        if (!line.empty()) {
            if (!joined.empty()) joined += std::string_view(".:;,!?").find(joined.back()) < 6 ? " " : "; ";
            joined += line;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return joined;
}

}  // namespace

ExitCode exit_code_of(const Error& error) {
    return class_of(error).code;
}

std::string exit_code_help() {
    return "Exit codes:\n"
           "  0  done\n"
           "  1  a check failed\n"
           "  2  usage\n"
           "  3  configuration or files\n"
           "  4  instrument\n"
           "  5  time-out\n"
           "  6  aborted\n"
           "  70 internal fault\n"
           "A failure prints one line on standard error: routine, number, description.";
}

std::string failure_line(const Error& error, const std::string& command, const std::string& base_folder) {
    const bool has_routine = !error.source().empty() && error.source() != library;
    const ErrorClass kind = class_of(error);
    std::string description = joined_lines(error.description());
    const auto add = [&](std::string_view remark) {
        if (remark.empty()) return;
        description = description.empty() ? std::string(remark) : fmt::format("{} ({})", description, remark);
    };
    add(kind.remark);
    const bool names_folder = description.find(base_folder) != std::string::npos;  // also where there is none
    if (kind.code == ExitCode::configuration && !names_folder) add("base folder " + base_folder);
    return fmt::format("korvane: {}: error {}: {}", has_routine ? joined_lines(error.source()) : command,
                       error.number(), description.empty() ? "no description" : description);
}

}  // namespace korvane::program
