// Means, sample standard deviations and mass errors of measured series.
#include <cmath>
#include <vector>

#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

constexpr double ppm = 1e6;

double finite_result(double value, const char* what) {
    if (!std::isfinite(value)) raise_runtime_fault(error_number::overflow, what);
    return value;
}

struct Statistics {
    double mean, standard_deviation;
};

Statistics statistics_of(const std::vector<double>& values) {
    const auto count = static_cast<double>(values.size());
    double sum = 0, squares = 0;
    for (const double value : values) sum += value;
    const double mean = finite_result(sum / count, "mean");
    for (const double value : values) squares += (value - mean) * (value - mean);
    return {mean, finite_result(std::sqrt(squares / (count - 1)), "standard deviation")};
}

/// Of `count` series of `repeats` values each. Error 11 with fewer than two repeats.
template <class Value>
void take_statistics(std::size_t count, std::size_t repeats, const Value& value, VariantArray<double>& means,
                     VariantArray<double>& standard_deviations) {
    if (repeats < 2)
        raise_runtime_fault(error_number::division_by_zero, text_of("standard deviation of ", repeats, " values"));
    std::vector<double> series(repeats), all_means, all_deviations;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t repeat = 0; repeat < repeats; ++repeat) series[repeat] = value(i, repeat);
        const Statistics statistics = statistics_of(series);
        all_means.push_back(statistics.mean);
        all_deviations.push_back(statistics.standard_deviation);
    }
    means = std::move(all_means);
    standard_deviations = std::move(all_deviations);
}

/// (measured - expected) / expected x 10^6 of every time, in the same shape. Error 9 unless there is one expected mass
/// a row, 11 for an expected mass of 0.
VariantMatrix<double> mass_errors_ppm(const VariantArray<double>& expected_masses,
                                      const VariantMatrix<double>& times_ns, const MassTimeCalibration& calibration) {
    const auto expected = expected_masses.elements();
    if (expected.size() != times_ns.rows())
        raise_runtime_fault(error_number::subscript,
                            text_of(expected.size(), " expected masses, times of ", times_ns.rows()));
    VariantMatrix<double> errors(times_ns.rows(), times_ns.columns());
    for (std::size_t spectrum = 0; spectrum < times_ns.columns(); ++spectrum)
        for (std::size_t mass = 0; mass < times_ns.rows(); ++mass) {
            const double measured = calibration.mass_from_time(times_ns.at(mass, spectrum));
            if (expected[mass] == 0) raise_runtime_fault(error_number::division_by_zero, "expected mass 0");
            errors.at(mass, spectrum) = finite_result((measured - expected[mass]) / expected[mass] * ppm, "mass error");
        }
    return errors;
}

}  // namespace

void TuneGlobals::CalculateStdevOfMassAssignmentErrorForTheseMasses(
    const VariantArray<double>& varExpectedMasses, const VariantMatrix<double>& varMeasuredTimes,
    const CalibrationObject& pLocalCopyOfCurrentMTCalcObjFromDD, VariantMatrix<double>& calibErrorRawData,
    VariantArray<double>& calibErrorMean, VariantArray<double>& calibStdDevs) {
    routine(impl_->trace, {"CalculateStdevOfMassAssignmentErrorForTheseMasses"}, [&] {
        if (!pLocalCopyOfCurrentMTCalcObjFromDD)
            raise_runtime_fault(error_number::object_not_set, "calibration object");
        auto errors = mass_errors_ppm(varExpectedMasses, varMeasuredTimes, *pLocalCopyOfCurrentMTCalcObjFromDD);
        const auto of_mass = [&](std::size_t mass, std::size_t spectrum) { return errors.at(mass, spectrum); };
        take_statistics(errors.rows(), errors.columns(), of_mass, calibErrorMean, calibStdDevs);
        calibErrorRawData = std::move(errors);
    });
}

void TuneGlobals::CalculateMeanAndStdevForThisData(const VariantMatrix<double>& varMeasuredValues,
                                                   VariantArray<double>& Means, VariantArray<double>& StdDevs) {
    routine(impl_->trace, {"CalculateMeanAndStdevForThisData"}, [&] {
        const auto of_column = [&](std::size_t column, std::size_t row) { return varMeasuredValues.at(row, column); };
        take_statistics(varMeasuredValues.columns(), varMeasuredValues.rows(), of_column, Means, StdDevs);
    });
}

}  // namespace korvane
