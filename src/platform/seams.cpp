// What the base classes of the seams do themselves, and the faults of the runtime.
#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

#include "korvane/error.h"
#include "korvane/instrument.h"
#include "korvane/mass_time.h"
#include "korvane/system.h"

namespace korvane {

namespace {

struct KnownFault {
    std::int32_t number;
    ErrorKind kind;
    std::string_view text = "Application-defined or object-defined error";
};

using enum ErrorKind;
constexpr KnownFault known_faults[] = {{error_number::user_aborted, aborted},
                                       {error_number::polarity_timeout, time_out},
                                       {error_number::setpoint_not_reached, time_out},
                                       {error_number::preferences_unavailable, configuration},
                                       {error_number::file_or_element, configuration},
                                       {error_number::group_node, configuration},
                                       {error_number::group_not_permitted, configuration},
                                       {5, instrument, "Invalid procedure call or argument"},
                                       {6, instrument, "Overflow"},
                                       {7, internal, "Out of memory"},
                                       {9, instrument, "Subscript out of range"},
                                       {11, instrument, "Division by zero"},
                                       {13, configuration, "Type mismatch"},
                                       {51, internal, "Internal error"},
                                       {53, configuration, "File not found"},
                                       {57, configuration, "Device I/O error"},
                                       {61, configuration, "Disk full"},
                                       {70, configuration, "Permission denied"},
                                       {75, configuration, "Path/File access error"},
                                       {76, configuration, "Path not found"},
                                       {91, instrument, "Object variable or With block variable not set"},
                                       {94, usage, "Invalid use of Null"},
                                       {424, usage, "Object required"},
                                       {429, instrument, "ActiveX component can't create object"},
                                       {438, usage, "Object doesn't support this property or method"},
                                       {448, usage, "Named argument not found"},
                                       {449, usage, "Argument not optional"},
                                       {450, usage, "Wrong number of arguments or invalid property assignment"}};

KnownFault fault_of(std::int32_t number) {
    const auto* const found = std::ranges::find(known_faults, number, &KnownFault::number);
    return found == std::end(known_faults) ? KnownFault{number, instrument} : *found;
}

}  // namespace

ErrorKind usual_error_kind(std::int32_t number) noexcept {
    return fault_of(number).kind;
}

void raise_runtime_fault(std::int32_t number, const std::string& detail) {
    std::string description(fault_of(number).text);
    if (!detail.empty()) description += ": " + detail;
    throw Error(number, "Korvane", description);
}

TracerFactory::TracerFactory() {
    static std::atomic<std::uint64_t> made{0};
    id_ = ++made;
}

std::int32_t FileError::runtime_error_number() const noexcept {
    constexpr std::array in_the_order_of_kinds{53, 76, 70, 70, 61, 57, 75};
    return in_the_order_of_kinds[static_cast<std::size_t>(kind_)];
}

std::vector<double> MassTimeCalibration::masses_from_times(const std::vector<double>& times_ns) const {
    std::vector<double> masses;
    for (const double time_ns : times_ns) masses.push_back(mass_from_time(time_ns));
    return masses;
}

std::vector<double> MassTimeCalibration::times_from_masses(const std::vector<double>& masses) const {
    std::vector<double> times_ns;
    for (const double mass : masses) times_ns.push_back(time_from_mass(mass));
    return times_ns;
}

std::unique_ptr<InstrumentGlobals> open_globals(InstrumentLayer& layer) {
    auto globals = layer.create_globals();
    if (!globals) raise_runtime_fault(error_number::object_not_set, "create_globals");
    globals->initialise();
    return globals;
}

double number_of(const InstrumentValue& value, const std::string& what) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return *integer;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) {
        double number = 0;
        const char* const begin = text->data() + (text->starts_with('+') ? 1 : 0);
        const char* const end = text->data() + text->size();
        const auto [stopped, fault] = std::from_chars(begin, end, number);
        if (fault == std::errc() && stopped == end && std::isfinite(number)) return number;
    }
    raise_runtime_fault(error_number::type_mismatch, what);
}

}  // namespace korvane
