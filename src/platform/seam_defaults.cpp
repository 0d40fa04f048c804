// What an instrument's calibration or peak list does when it does not do better itself.
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"

namespace korvane {

std::vector<double> MassTimeCalibration::masses_from_times(const std::vector<double>& times_ns) const {
    std::vector<double> masses;
    masses.reserve(times_ns.size());
    for (const double time_ns : times_ns) masses.push_back(mass_from_time(time_ns));
    return masses;
}

std::vector<double> MassTimeCalibration::times_from_masses(const std::vector<double>& masses) const {
    std::vector<double> times_ns;
    times_ns.reserve(masses.size());
    for (const double mass : masses) times_ns.push_back(time_from_mass(mass));
    return times_ns;
}

std::optional<PeakUncertainty> PeakList::uncertainty(std::int32_t) const {
    return std::nullopt;
}

}  // namespace korvane
