#include "mass_error_statistics.h"

#include "calibrants.h"

namespace korvane::program {

namespace {

// Flight times of one calibrant, in the spectra that showed it.
using Times = std::vector<double>;

std::vector<Times> measure_times(SpectrumParser& parser, const std::vector<double>& masses, std::int64_t repeats) {
    std::vector<Times> times(masses.size());
    for (std::int64_t repeat = 0; repeat < repeats; ++repeat) {
        const auto records = parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(masses));
        for (std::size_t i = 0; i < masses.size(); ++i)
            if (records.at(i, 0) != PeakInfo{}) times[i].push_back(records.at(i, 0).pkCentroid);
    }
    return times;
}

MassErrorStatistics statistics_of(TuneGlobals& globals, const CalibrationObject& calibration, double mass,
                                  const Times& times) {
    MassErrorStatistics result{mass, static_cast<std::int64_t>(times.size()), {}, {}};
    if (times.empty()) return result;
    // A single time has no deviation; written twice it still has its mean.
    const std::size_t columns = std::max<std::size_t>(times.size(), 2);
    VariantMatrix<double> measured(1, columns), raw;
    for (std::size_t i = 0; i < columns; ++i) measured.at(0, i) = times[std::min(i, times.size() - 1)];
    VariantArray<double> means, deviations;
    globals.CalculateStdevOfMassAssignmentErrorForTheseMasses(VariantArray<double>({mass}), measured, calibration, raw,
                                                              means, deviations);
    result.mean_ppm = means.at(0);
    if (times.size() > 1) result.stdev_ppm = deviations.at(0);
    return result;
}

}  // namespace

std::vector<MassErrorStatistics> mass_error_statistics(Session& session, TuneGlobals& globals, std::int64_t repeats) {
    SpectrumParser parser(session.platform());
    const std::vector<double> masses = chosen_masses(session, globals, {});
    const std::vector<Times> times = measure_times(parser, masses, repeats);
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();
    std::vector<MassErrorStatistics> rows;
    for (std::size_t i = 0; i < masses.size(); ++i)
        rows.push_back(statistics_of(globals, calibration, masses[i], times[i]));
    return rows;
}

}  // namespace korvane::program
