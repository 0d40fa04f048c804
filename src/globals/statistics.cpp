// Means, sample standard deviations and mass errors of measured series.
#include <cmath>
#include <vector>

#include "globals/tune_globals_state.h"
#include "platform/text.h"

namespace korvane {

namespace {

constexpr double ppm = 1e6;

double finite_result(double value, const char* what) {
    if (!std::isfinite(value)) raise_runtime_fault(error_number::overflow, what);
    return value;
}

/// Of `count` series of `repeats` values each. Error 11 without a value, and with a single one, when the means stand.
template <class Value>
void take_statistics(std::size_t count, std::size_t repeats, const Value& value, VariantArray<double>& means,
                     VariantArray<double>& standard_deviations) {
    const auto divided = [&](double sum, std::size_t divisor, const char* what) {
        if (divisor == 0) raise_runtime_fault(error_number::division_by_zero, what, " of ", repeats, " values");
        return finite_result(sum / static_cast<double>(divisor), what);
    };
    std::vector<double> all_means(count), all_deviations(count);
    means = standard_deviations = all_means;
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0;
        for (std::size_t repeat = 0; repeat < repeats; ++repeat) sum += value(i, repeat);
        all_means[i] = divided(sum, repeats, "mean");
    }
    means = all_means;
    for (std::size_t i = 0; i < count; ++i) {
        double squares = 0;
        for (std::size_t repeat = 0; repeat < repeats; ++repeat)
            squares += std::pow(value(i, repeat) - all_means[i], 2);
        all_deviations[i] = std::sqrt(divided(squares, repeats - 1, "standard deviation"));
    }
    standard_deviations = all_deviations;
}

/// (measured - expected) / expected x 10^6 of every time, in the same shape. Error 9 unless there is one expected mass
/// a row, 11 for an expected mass of 0.
void take_mass_errors_ppm(const VariantArray<double>& expected_masses, const VariantMatrix<double>& times_ns,
                          const MassTimeCalibration& calibration, VariantMatrix<double>& errors) {
    const auto expected = expected_masses.elements();
    if (expected.size() != times_ns.rows())
        raise_runtime_fault(error_number::subscript, expected.size(), " expected masses, times of ", times_ns.rows());
    errors = {times_ns.rows(), times_ns.columns()};
    for (std::size_t spectrum = 0; spectrum < times_ns.columns(); ++spectrum)
        for (std::size_t mass = 0; mass < times_ns.rows(); ++mass) {
            const double measured = calibration.mass_from_time(times_ns.at(mass, spectrum));
            if (expected[mass] == 0) raise_runtime_fault(error_number::division_by_zero, "expected mass 0");
            errors.at(mass, spectrum) = finite_result((measured - expected[mass]) / expected[mass] * ppm, "mass error");
        }
}

}  // namespace

void TuneGlobals::CalculateStdevOfMassAssignmentErrorForTheseMasses(
    const VariantArray<double>& varExpectedMasses, const VariantMatrix<double>& varMeasuredTimes,
    const CalibrationObject& pLocalCopyOfCurrentMTCalcObjFromDD, VariantMatrix<double>& calibErrorRawData,
    VariantArray<double>& calibErrorMean, VariantArray<double>& calibStdDevs) {
    routine(impl_->trace, [&] {
        if (!pLocalCopyOfCurrentMTCalcObjFromDD)
            raise_runtime_fault(error_number::object_not_set, "calibration object");
        take_mass_errors_ppm(varExpectedMasses, varMeasuredTimes, *pLocalCopyOfCurrentMTCalcObjFromDD,
                             calibErrorRawData);
        const auto of_mass = [&](std::size_t mass, std::size_t spectrum) {
            return calibErrorRawData.at(mass, spectrum);
        };
        take_statistics(calibErrorRawData.rows(), calibErrorRawData.columns(), of_mass, calibErrorMean, calibStdDevs);
    });
}

void TuneGlobals::CalculateMeanAndStdevForThisData(const VariantMatrix<double>& varMeasuredValues,
                                                   VariantArray<double>& Means, VariantArray<double>& StdDevs) {
    routine(impl_->trace, [&] {
        const auto of_column = [&](std::size_t column, std::size_t row) { return varMeasuredValues.at(row, column); };
        take_statistics(varMeasuredValues.columns(), varMeasuredValues.rows(), of_column, Means, StdDevs);
    });
}

}  // namespace korvane
