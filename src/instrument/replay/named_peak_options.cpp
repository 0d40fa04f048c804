#include "instrument/replay/named_peak_options.h"

namespace korvane::replay {

namespace {

constexpr const char* resolution_limit = "resolution limit";
constexpr const char* detector_width = "detector width (ns)";

struct NamedOption {
    const char* name;
    std::optional<double> PeakFinderOptions::*value;
};

constexpr NamedOption single_options[] = {
    {"counts per ion", &PeakFinderOptions::counts_per_ion},
    {"ion height spread", &PeakFinderOptions::ion_height_spread},
    {"ion pulse width (ns)", &PeakFinderOptions::ion_pulse_fwhm_ns},
    {"tail fraction", &PeakFinderOptions::tail_fraction},
    {"tail pulse part", &PeakFinderOptions::tail_pulse_part},
    {"saturation (counts)", &PeakFinderOptions::saturation_counts},
};

}  // namespace

std::vector<std::pair<const char*, double>> named_peak_options(const PeakFinderOptions& options) {
    std::vector<std::pair<const char*, double>> named;
    if (options.width) {
        named.emplace_back(resolution_limit, options.width->resolution_limit);
        named.emplace_back(detector_width, options.width->detector_fwhm_ns);
    }
    for (const auto& [name, value] : single_options)
        if (options.*value) named.emplace_back(name, *(options.*value));
    return named;
}

std::optional<PeakFinderOptions> peak_finder_options(
    const std::function<std::optional<double>(const char*)>& value_of) {
    PeakFinderOptions options;
    const auto limit = value_of(resolution_limit);
    const auto width = value_of(detector_width);
    if (limit.has_value() != width.has_value()) return std::nullopt;
    if (limit) options.width = WidthModel{*limit, *width};
    for (const auto& [name, value] : single_options) options.*value = value_of(name);
    return options;
}

}  // namespace korvane::replay
