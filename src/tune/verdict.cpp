#include "korvane/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "korvane/tune_params_xml.h"
#include "tune/base_file.h"

namespace korvane {

namespace {

/// The mass of a weak peak lies off by as many standard errors by chance alone; its height tells what is wrong.
constexpr double chance_standard_errors = 3;

std::optional<double> reference_of(const TuneLimits& limits, double mass) {
    for (const auto& [mz, height] : limits.reference_heights)
        if (is_same_mass(mz, mass)) return height;
    return std::nullopt;
}

}  // namespace

TuneLimits read_tune_limits(const Platform& platform) {
    TuneLimits limits;
    const BaseFile file(platform, "TuneLimits.json", "read_tune_limits");
    const json::Json object = file.read().value_or(json::Json::object());
    read_fields(file, object, limits);
    const json::Json flat = object.flatten();
    for (const auto& [pointer, value] : flat.items()) {
        if (!value.is_number() || value.get<double>() > 0) continue;
        std::string place = pointer.substr(1);
        std::ranges::replace(place, '/', '.');
        file.refuse(place + ": " + value.dump() + " is not above 0");
    }
    if (limits.height == 0)
        limits.height = clsTuneParamsXML(platform).GetAutotuneLimitValue("RampParams", "MinimumAcceptableAbundance");
    return limits;
}

const char* name_of(CalibrantState state) noexcept {
    constexpr std::array names{"missing", "off mass", "clipped", "low", "broad", "misshapen", "ok"};
    return names[static_cast<std::size_t>(state)];
}

CalibrantVerdict verdict_of(const MeasuredCalibrant& calibrant, const TuneLimits& limits) {
    const auto verdict = [](CalibrantState state, double value, double limit, const std::string& why) {
        return CalibrantVerdict{state, value, limit,
                                fmt::format("{}{}{}", name_of(state), why.empty() ? "" : ": ", why)};
    };
    using enum CalibrantState;
    if (!calibrant.found()) return verdict(missing, 0, 0, "no peak in the window");
    const double error_ppm = calibrant.error_ppm(), height = calibrant.ns.pkHeight;
    const double most_ppm =
        std::max(limits.mass_error_ppm, chance_standard_errors * calibrant.standard_error_ppm().value_or(0));
    if (!(std::abs(error_ppm) <= most_ppm))
        return verdict(off_mass, error_ppm, most_ppm,
                       fmt::format("{:+.2f} ppm, more than {:.3g}", error_ppm, most_ppm));
    if (calibrant.quality && calibrant.quality->clipped)
        return verdict(clipped, 0, 0, "samples at the detector's limit");
    double least = limits.height;
    if (const auto reference = reference_of(limits, calibrant.mass))
        least = std::max(least, limits.part_of_reference * *reference);
    if (!(height >= least))
        return verdict(low, height, least, fmt::format("height {:.0f}, less than {:.0f}", height, least));
    if (!(calibrant.amu.pkResolution >= limits.resolution))
        return verdict(
            broad, calibrant.amu.pkResolution, limits.resolution,
            fmt::format("resolution {:.0f}, less than {:.0f}", calibrant.amu.pkResolution, limits.resolution));
    if (calibrant.quality && !(calibrant.quality->misfit <= limits.misfit))
        return verdict(misshapen, calibrant.quality->misfit, limits.misfit,
                       fmt::format("misfit {:.1f}, more than {:.1f}", calibrant.quality->misfit, limits.misfit));
    return verdict(ok, 0, 0, {});
}

}  // namespace korvane
