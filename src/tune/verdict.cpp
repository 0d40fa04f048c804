#include "korvane/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "korvane/tune_params_xml.h"
#include "tune/base_file.h"

namespace korvane {

namespace {

using Json = nlohmann::json;

/// The mass of a weak peak lies off by as many standard errors by chance alone; its height tells what is wrong.
constexpr double chance_standard_errors = 3;

constexpr std::array limit_keys{
    std::pair{"mass_error_ppm", &TuneLimits::mass_error_ppm}, std::pair{"resolution", &TuneLimits::resolution},
    std::pair{"height", &TuneLimits::height}, std::pair{"part_of_reference", &TuneLimits::part_of_reference},
    std::pair{"misfit", &TuneLimits::misfit}};

double positive_number(const BaseFile& file, const std::string& key, const Json& value) {
    if (!value.is_number() || !(value.get<double>() > 0)) file.refuse(key + ": " + value.dump() + " is not above 0");
    return value.get<double>();
}

void read_references(const BaseFile& file, const Json& heights, TuneLimits& limits) {
    if (!heights.is_object()) file.refuse("reference_heights: not an object of heights by m/z");
    for (const auto& [mass, height] : heights.items()) {
        double mz = 0;
        const auto read = std::from_chars(mass.data(), mass.data() + mass.size(), mz);
        if (read.ec != std::errc() || read.ptr != mass.data() + mass.size() || !(mz > 0))
            file.refuse("reference_heights: " + mass + " is no m/z");
        limits.reference_heights[mz] = positive_number(file, "reference_heights: " + mass, height);
    }
}

std::optional<double> reference_of(const TuneLimits& limits, double mass) {
    for (const auto& [mz, height] : limits.reference_heights)
        if (is_same_mass(mz, mass)) return height;
    return std::nullopt;
}

}  // namespace

TuneLimits read_tune_limits(const Platform& platform) {
    TuneLimits limits;
    const BaseFile file(platform, "TuneLimits.json", "read_tune_limits");
    const Json object = file.read().value_or(Json::object());
    for (const auto& [key, value] : object.items()) {
        if (key == "reference_heights") {
            read_references(file, value, limits);
            continue;
        }
        const auto known =
            std::ranges::find(limit_keys, key, [](const auto& entry) { return std::string(entry.first); });
        if (known == limit_keys.end()) file.refuse(key + ": unknown key");
        limits.*known->second = positive_number(file, key, value);
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
