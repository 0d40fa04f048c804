// What the base classes of the seams do themselves.
#include <atomic>

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
