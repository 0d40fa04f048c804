// What the base classes of the seams do themselves.
#include <atomic>
#include <charconv>
#include <cmath>

#include "korvane/instrument.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "korvane/system.h"

namespace korvane {

TracerFactory::TracerFactory() {
    static std::atomic<std::uint64_t> made{0};
    id_ = ++made;
}

bool Files::is_first_save(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return saved_paths_.insert(path).second;
}

std::int32_t FileError::runtime_error_number() const noexcept {
    switch (kind_) {
        case FileErrorKind::not_found:
            return 53;
        case FileErrorKind::folder_not_found:
            return 76;
        case FileErrorKind::access_denied:
        case FileErrorKind::sharing_violation:
            return 70;
        case FileErrorKind::no_space:
            return 61;
        case FileErrorKind::input_output:
            return 57;
        case FileErrorKind::other:
            break;
    }
    return 75;
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
        const char *const begin = text->data() + (text->starts_with('+') ? 1 : 0), *const end =
                                                                                       text->data() + text->size();
        const auto [stopped, fault] = std::from_chars(begin, end, number);
        if (fault == std::errc() && stopped == end && std::isfinite(number)) return number;
    }
    raise_runtime_fault(error_number::type_mismatch, what);
}

std::optional<PeakUncertainty> PeakList::uncertainty(std::int32_t) const {
    return std::nullopt;
}

std::optional<PeakQuality> PeakList::quality(std::int32_t) const {
    return std::nullopt;
}

std::vector<double> PeakList::fitted_counts(double, double, std::size_t) const {
    return {};
}

}  // namespace korvane
