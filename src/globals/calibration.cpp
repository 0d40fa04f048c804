// The mass calibration: units of its coefficients, defaults, and its exchange with the instrument; means, sample
// standard deviations and mass errors of measured series.
#include <array>
#include <cmath>
#include <vector>

#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

constexpr std::int32_t store_trace_level = 8;
constexpr std::int32_t term_used = 1;

// Of the terms in use, in their order.
constexpr std::array term_coefficients{&CalibrationCoefficients::C, &CalibrationCoefficients::D,
                                       &CalibrationCoefficients::E, &CalibrationCoefficients::F,
                                       &CalibrationCoefficients::G, &CalibrationCoefficients::H};

double finite_coefficient(double value, char coefficient) {
    if (!std::isfinite(value)) raise_runtime_fault(error_number::overflow, "calibration coefficient ", coefficient);
    return value;
}

void convert_terms(TraceObj& record, const VariantArray<std::int32_t>& flags, CalibrationCoefficients& coefficients,
                   bool to_ns) {
    if (flags.is_empty()) return;
    record.TR_PRINT("ValueUseFlags[lbound,ubound] = ", flags.lower_bound(), ",", flags.upper_bound());
    std::size_t used = 0;
    for (std::int32_t term = flags.lower_bound(); term <= flags.upper_bound(); ++term) {
        if (flags.at(term) != term_used) continue;
        record.TR_PRINT("Term ", term, " used");
        if (used == term_coefficients.size()) continue;
        const char name = static_cast<char>('C' + used);
        double& coefficient = coefficients.*term_coefficients[used++];
        // Of c t^p: the unit of the coefficient goes with 1 / t^p.
        const double scale = finite_coefficient(std::pow(ns_per_us, term), name);
        coefficient = finite_coefficient(to_ns ? coefficient / scale : coefficient * scale, name);
        record.TR_PRINT("writing ", name, " coeff");
    }
}

bool uses_override_values(TuneGlobalsState& state) {
    return state.preferences.GetTunePreference("DefaultCalib_UseOverrideValues", true) == "Yes";
}

// No model has a default of its own for B.
double default_b_ns(TuneGlobalsState& state) {
    return routine(state.trace, {"getDefaultCalibCoefB_nsec"}, [&] {
        if (uses_override_values(state))
            return state.parameters.GetManualTuneValue("Calibration", "DefaultCalibBCoef_Override");
        return to_double(state.instrument->dictionary_item(contract::dictionary_item.coefficient_b));
    });
}

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

CalibrationCoefficients TuneGlobals::convert_coefficients_usec_to_nsec(const CalibrationCoefficients& calcoef) {
    return routine(impl_->trace, [&](TraceObj& record) {
        const auto trace_a_and_b = [&](std::string_view when, const CalibrationCoefficients& coefficients) {
            record.TR_PRINT("pMassCoef.A (", when, " conversion to nsec) = ", coefficients.A);
            record.TR_PRINT("pMassCoef.B (", when, " conversion to nsec) = ", coefficients.B);
        };
        trace_a_and_b("before", calcoef);
        const CalibrationCoefficients nanoseconds = convert_coefficients_nsec_to_usec(calcoef, true);
        trace_a_and_b("after", nanoseconds);
        return nanoseconds;
    });
}

CalibrationCoefficients TuneGlobals::convert_coefficients_nsec_to_usec(const CalibrationCoefficients& calcoef,
                                                                       bool b_usec_to_nsec) {
    return routine(impl_->trace, [&](TraceObj& record) {
        CalibrationCoefficients converted = calcoef;
        // A goes with 1/t, B with t.
        converted.A = finite_coefficient(b_usec_to_nsec ? calcoef.A / ns_per_us : calcoef.A * ns_per_us, 'A');
        converted.B = finite_coefficient(b_usec_to_nsec ? calcoef.B * ns_per_us : calcoef.B / ns_per_us, 'B');
        convert_terms(record, impl_->setpoints.calibration()->use_flags(), converted, b_usec_to_nsec);
        return converted;
    });
}

CalibrationObject TuneGlobals::GetCurrentCalibrationObjFromDD() {
    return routine(impl_->trace, [&] { return impl_->setpoints.calibration(); });
}

double TuneGlobals::getDefaultCalibCoefA_nsec() {
    return routine(impl_->trace, [&] {
        if (uses_override_values(*impl_))
            return impl_->parameters.GetManualTuneValue("Calibration", "DefaultCalibACoef_Override");
        if (impl_->is_model_4410()) return impl_->limit("Calibration", "DefaultCalibACoef_4410");
        return to_double(impl_->instrument->dictionary_item(contract::dictionary_item.coefficient_a));
    });
}

CalibrationCoefficients TuneGlobals::getDefaultCalibrationCoeffs_nsec() {
    return routine(impl_->trace, [&] {
        CalibrationCoefficients coefficients;
        coefficients.A = getDefaultCalibCoefA_nsec();
        coefficients.B = default_b_ns(*impl_);
        return coefficients;
    });
}

CalibrationObject TuneGlobals::getDefaultMTObj_nsec() {
    return routine(impl_->trace, [&] {
        const auto number = [&](const contract::Text& item) {
            return to_int32(impl_->instrument->dictionary_item(item));
        };
        CalibrationObject calibration = GetCurrentCalibrationObjFromDD();
        CalibrationSettings settings = calibration->settings();
        settings.CalReserved1 = number(contract::dictionary_item.reserved_1);
        settings.CalTraditionalWeighting = number(contract::dictionary_item.traditional_weighting);
        settings.CalPolynomialWeighting = number(contract::dictionary_item.polynomial_weighting);
        calibration->set_settings(settings);
        calibration->set_coefficients(getDefaultCalibrationCoeffs_nsec());
        return calibration;
    });
}

void TuneGlobals::WriteThisCalibrationObjToDD(const CalibrationObject& pMTCalcObj) {
    routine(impl_->trace, {"WriteThisCalibrationObjToDD", store_trace_level}, [&](TraceObj& record) {
        if (!pMTCalcObj) raise_runtime_fault(error_number::object_not_set, "calibration object");
        const std::int32_t polarity = impl_->setpoints.polarity();
        record.TR_PRINT("Saving new coefficients to ",
                        polarity == contract::polarity.positive ? "positive" : "negative", " mode calibrant");
        impl_->instrument->calibrations().store(polarity, *pMTCalcObj);
    });
}

void TuneGlobals::SetNewCalibrationWithTheseAAndt0Values_usec(double LikelyA, double t0) {
    routine(impl_->trace, [&] {
        const CalibrationObject calibration = GetCurrentCalibrationObjFromDD();
        CalibrationCoefficients coefficients = calibration->coefficients();
        coefficients.A = LikelyA;
        coefficients.B = t0;
        calibration->set_coefficients(convert_coefficients_usec_to_nsec(coefficients));
        WriteThisCalibrationObjToDD(calibration);
    });
}

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
