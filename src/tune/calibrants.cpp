#include "korvane/calibrants.h"

#include <algorithm>
#include <cmath>

#include "tune/law_slope.h"

namespace korvane {

namespace {

/// Chi-square per degree of freedom that chance exceeds once in a thousand, by Wilson and Hilferty's cube.
double chance_limit(std::size_t freedom) {
    const double part = 2.0 / (9.0 * static_cast<double>(freedom));
    return std::pow(1 - part + 3.09 * std::sqrt(part), 3);
}

struct Reading {
    double time_ns = 0, error_ns = 0;
};

CalibrantTime combined(double mass, const std::vector<Reading>& readings) {
    CalibrantTime result{mass, 0, 0, readings.size()};
    if (readings.empty()) return result;
    const bool stated = std::ranges::all_of(readings, [](const Reading& reading) { return reading.error_ns > 0; });
    double weights = 0, chi_square = 0;
    const auto weight_of = [&](const Reading& reading) {
        return stated ? 1 / (reading.error_ns * reading.error_ns) : 1.0;
    };
    for (const Reading& reading : readings) {
        weights += weight_of(reading);
        result.time_ns += weight_of(reading) * reading.time_ns;
    }
    result.time_ns /= weights;
    for (const Reading& reading : readings)
        chi_square += weight_of(reading) * (reading.time_ns - result.time_ns) * (reading.time_ns - result.time_ns);
    const std::size_t freedom = readings.size() - 1;
    if (freedom == 0) {
        result.error_ns = stated ? readings[0].error_ns : 0;
        return result;
    }
    const double variance = chi_square / static_cast<double>(freedom);
    const bool scatter_counts = !stated || variance > chance_limit(freedom);
    result.error_ns = std::sqrt((scatter_counts ? variance : 1) / weights);
    return result;
}

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
    std::vector<std::vector<Reading>> readings(masses.size());
    for (std::size_t spectrum = 0; spectrum < spectra; ++spectrum) {
        const auto rows = measure_calibrants(parser, globals, masses);
        for (std::size_t i = 0; i < rows.size(); ++i)
            if (rows[i].found())
                readings[i].push_back(
                    {rows[i].ns.pkCentroid, rows[i].standard_errors ? rows[i].standard_errors->centroid : 0});
    }
    std::vector<CalibrantTime> times;
    for (std::size_t i = 0; i < readings.size(); ++i) times.push_back(combined(masses.elements()[i], readings[i]));
    return times;
}

}  // namespace korvane
