// Calibrants measured, and judged.
#include "korvane/calibrants.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "korvane/tune_params_xml.h"
#include "korvane/verdict.h"
#include "tune/base_file.h"
#include "tune/law_slope.h"

namespace korvane {

namespace {

/// Chi-square per degree of freedom that chance exceeds once in a thousand, by Wilson and Hilferty's cube.
double chance_limit(std::size_t freedom) {
    const double part = 2.0 / (9.0 * static_cast<double>(freedom));
    return std::pow(1 - part + 3.09 * std::sqrt(part), 3);
}

/// Of the flight times in single spectra.
CalibrantTime combined(double mass, const std::vector<CalibrantTime>& readings) {
    if (readings.size() < 2) return readings.empty() ? CalibrantTime{mass, 0, 0, 0} : readings[0];
    CalibrantTime result{mass, 0, 0, readings.size()};
    const bool stated =
        std::ranges::all_of(readings, [](const CalibrantTime& reading) { return reading.error_ns > 0; });
    double weights = 0, chi_square = 0;
    const auto weight_of = [&](const CalibrantTime& reading) {
        return stated ? 1 / (reading.error_ns * reading.error_ns) : 1.0;
    };
    for (const CalibrantTime& reading : readings) {
        weights += weight_of(reading);
        result.time_ns += weight_of(reading) * reading.time_ns;
    }
    result.time_ns /= weights;
    for (const CalibrantTime& reading : readings)
        chi_square += weight_of(reading) * (reading.time_ns - result.time_ns) * (reading.time_ns - result.time_ns);
    const std::size_t freedom = readings.size() - 1;
    const double variance = chi_square / static_cast<double>(freedom);
    const bool scatter_counts = !stated || variance > chance_limit(freedom);
    result.error_ns = std::sqrt((scatter_counts ? variance : 1) / weights);
    return result;
}

/// The mass of a weak peak lies off by as many standard errors by chance alone; its height tells what is wrong.
constexpr double chance_standard_errors = 3;

}  // namespace

VariantArray<double> default_masses(InstrumentGlobals& instrument, TuneGlobals& globals) {
    return globals.GetDefaultMassList(globals.GetMassListTypeFromSourceTypeString(instrument.source_type()),
                                      globals.GetPolarityStr());
}

std::vector<MeasuredCalibrant> measure_calibrants(SpectrumParser& parser, TuneGlobals& globals,
                                                  const VariantArray<double>& masses, double window_percent) {
    const VariantMatrix<PeakInfo> records = parser.GetPeakInfoForCalibrantMasses(masses, window_percent);
    const auto& uncertainties = parser.last_uncertainties();
    const auto& qualities = parser.last_qualities();
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();
    std::vector<MeasuredCalibrant> rows(masses.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i] = {masses.elements()[i], records.at(i, 0), records.at(i, 1), {}, 0, {}};
        if (!rows[i].found()) continue;
        if (i < uncertainties.size()) rows[i].standard_errors = uncertainties[i];
        if (i < qualities.size()) rows[i].quality = qualities[i];
        rows[i].ppm_per_ns = ppm_per_ns(*calibration, rows[i].ns.pkCentroid);
    }
    return rows;
}

std::vector<CalibrantTime> measure_calibrant_times(SpectrumParser& parser, TuneGlobals& globals,
                                                   const VariantArray<double>& masses, std::size_t spectra) {
    std::vector<std::vector<CalibrantTime>> readings(masses.size());
    for (std::size_t spectrum = 0; spectrum < spectra; ++spectrum) {
        const auto rows = measure_calibrants(parser, globals, masses);
        for (std::size_t i = 0; i < rows.size(); ++i)
            if (rows[i].found())
                readings[i].push_back({rows[i].mass, rows[i].ns.pkCentroid,
                                       rows[i].standard_errors ? rows[i].standard_errors->centroid : 0, 1});
    }
    std::vector<CalibrantTime> times;
    for (std::size_t i = 0; i < readings.size(); ++i) times.push_back(combined(masses.elements()[i], readings[i]));
    return times;
}

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
    for (const auto& [mz, reference] : limits.reference_heights)
        if (is_same_mass(mz, calibrant.mass)) least = std::max(least, limits.part_of_reference * reference);
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
