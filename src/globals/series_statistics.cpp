#include "globals/series_statistics.h"

#include <cmath>

#include "platform/text.h"

namespace korvane {

namespace {

constexpr double ppm = 1e6;

double within_range(double value, const char* what) {
    if (!std::isfinite(value)) raise_runtime_fault(error_number::overflow, what);
    return value;
}

double column_mean(const VariantMatrix<double>& values, std::size_t column) {
    double sum = 0;
    for (std::size_t row = 0; row < values.rows(); ++row) sum += values.at(row, column);
    return within_range(sum / static_cast<double>(values.rows()), "mean");
}

double column_deviation(const VariantMatrix<double>& values, std::size_t column, double mean) {
    double squares = 0;
    for (std::size_t row = 0; row < values.rows(); ++row) {
        const double difference = values.at(row, column) - mean;
        squares += difference * difference;
    }
    return within_range(std::sqrt(squares / static_cast<double>(values.rows() - 1)), "standard deviation");
}

double error_ppm(double measured, double expected) {
    if (expected == 0) raise_runtime_fault(error_number::division_by_zero, "expected mass 0");
    return within_range((measured - expected) / expected * ppm, "mass error");
}

}  // namespace

SeriesStatistics column_statistics(const VariantMatrix<double>& values) {
    if (values.rows() < 2)
        raise_runtime_fault(error_number::division_by_zero,
                            text_of("standard deviation of ", values.rows(), " values"));
    SeriesStatistics statistics;
    for (std::size_t column = 0; column < values.columns(); ++column) {
        statistics.means.push_back(column_mean(values, column));
        statistics.standard_deviations.push_back(column_deviation(values, column, statistics.means.back()));
    }
    return statistics;
}

VariantMatrix<double> mass_errors_ppm(const VariantArray<double>& expected_masses,
                                      const VariantMatrix<double>& times_ns, const MassTimeCalibration& calibration) {
    const auto expected = expected_masses.elements();
    if (expected.size() != times_ns.rows())
        raise_runtime_fault(error_number::subscript,
                            text_of(expected.size(), " expected masses, times of ", times_ns.rows()));
    VariantMatrix<double> errors(times_ns.rows(), times_ns.columns());
    for (std::size_t spectrum = 0; spectrum < times_ns.columns(); ++spectrum)
        for (std::size_t mass = 0; mass < times_ns.rows(); ++mass)
            errors.at(mass, spectrum) =
                error_ppm(calibration.mass_from_time(times_ns.at(mass, spectrum)), expected[mass]);
    return errors;
}

VariantMatrix<double> transposed(const VariantMatrix<double>& matrix) {
    VariantMatrix<double> result(matrix.columns(), matrix.rows());
    for (std::size_t row = 0; row < matrix.rows(); ++row)
        for (std::size_t column = 0; column < matrix.columns(); ++column)
            result.at(column, row) = matrix.at(row, column);
    return result;
}

}  // namespace korvane
