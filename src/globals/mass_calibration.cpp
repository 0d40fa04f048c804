#include "globals/mass_calibration.h"

#include <array>
#include <cmath>

#include "globals/instrument_model.h"

namespace korvane {

namespace {

constexpr std::int32_t store_trace_level = 8;
constexpr std::int32_t term_used = 1;
constexpr double ns_per_us = 1000;

struct TermSlot {
    double CalibrationCoefficients::*coefficient;
    char name;
};
constexpr std::array<TermSlot, 6> term_slots{{{&CalibrationCoefficients::C, 'C'},
                                              {&CalibrationCoefficients::D, 'D'},
                                              {&CalibrationCoefficients::E, 'E'},
                                              {&CalibrationCoefficients::F, 'F'},
                                              {&CalibrationCoefficients::G, 'G'},
                                              {&CalibrationCoefficients::H, 'H'}}};

double within_range(double value, char coefficient) {
    if (!std::isfinite(value))
        raise_runtime_fault(error_number::overflow, text_of("calibration coefficient ", coefficient));
    return value;
}

}  // namespace

CalibrationCoefficients MassCalibration::to_ns(const CalibrationCoefficients& microseconds) {
    return routine(trace_, {"convert_coefficients_usec_to_nsec"}, [&](TraceObj& record) {
        record.TR_PRINT("pMassCoef.A (before conversion to nsec) = ", microseconds.A);
        record.TR_PRINT("pMassCoef.B (before conversion to nsec) = ", microseconds.B);
        const CalibrationCoefficients nanoseconds = convert(microseconds, true);
        record.TR_PRINT("pMassCoef.A (after conversion to nsec) = ", nanoseconds.A);
        record.TR_PRINT("pMassCoef.B (after conversion to nsec) = ", nanoseconds.B);
        return nanoseconds;
    });
}

CalibrationCoefficients MassCalibration::convert(const CalibrationCoefficients& coefficients, bool to_ns) {
    return routine(trace_, {"convert_coefficients_nsec_to_usec"}, [&](TraceObj& record) {
        CalibrationCoefficients converted = coefficients;
        // A goes with 1/t, B with t.
        converted.A = within_range(to_ns ? converted.A / ns_per_us : converted.A * ns_per_us, 'A');
        converted.B = within_range(to_ns ? converted.B * ns_per_us : converted.B / ns_per_us, 'B');
        convert_terms(record, converted, to_ns);
        return converted;
    });
}

void MassCalibration::convert_terms(TraceObj& record, CalibrationCoefficients& coefficients, bool to_ns) {
    const VariantArray<std::int32_t> flags = of_current_polarity()->use_flags();
    if (flags.is_empty()) return;
    record.TR_PRINT("ValueUseFlags[lbound,ubound] = ", flags.lower_bound(), ",", flags.upper_bound());
    auto slot = term_slots.begin();
    for (std::int32_t term = flags.lower_bound(); term <= flags.upper_bound(); ++term) {
        if (flags.at(term) != term_used) continue;
        record.TR_PRINT("Term ", term, " used");
        if (slot == term_slots.end()) continue;
        double& coefficient = coefficients.*slot->coefficient;
        // Of c t^p: the unit of the coefficient goes with 1 / t^p.
        const double scale = within_range(std::pow(ns_per_us, term), slot->name);
        coefficient = within_range(to_ns ? coefficient / scale : coefficient * scale, slot->name);
        record.TR_PRINT("writing ", slot->name, " coeff");
        ++slot;
    }
}

CalibrationObject MassCalibration::of_current_polarity() {
    const std::int32_t polarity = setpoints_.is_positive() ? contract::polarity.positive : contract::polarity.negative;
    CalibrationObject calibration = instrument_->calibrations().calibration(polarity);
    if (!calibration) raise_runtime_fault(error_number::object_not_set, text_of("calibration of polarity ", polarity));
    return calibration;
}

CalibrationObject MassCalibration::current() {
    return routine(trace_, {"GetCurrentCalibrationObjFromDD"}, [&] { return of_current_polarity(); });
}

bool MassCalibration::use_override_values() {
    return preferences_.GetTunePreference("DefaultCalib_UseOverrideValues", true) == "Yes";
}

double MassCalibration::default_a_ns() {
    return routine(trace_, {"getDefaultCalibCoefA_nsec"}, [&] {
        if (use_override_values()) return parameters_.GetManualTuneValue("Calibration", "DefaultCalibACoef_Override");
        if (is_model_4410(instrument_->hardware()))
            return parameters_.GetAutotuneLimitValue("Calibration", "DefaultCalibACoef_4410");
        return to_double(instrument_->dictionary_item(contract::dictionary_item.coefficient_a));
    });
}

// No model has a default of its own for B.
double MassCalibration::default_b_ns() {
    return routine(trace_, {"getDefaultCalibCoefB_nsec"}, [&] {
        if (use_override_values()) return parameters_.GetManualTuneValue("Calibration", "DefaultCalibBCoef_Override");
        return to_double(instrument_->dictionary_item(contract::dictionary_item.coefficient_b));
    });
}

CalibrationCoefficients MassCalibration::default_coefficients_ns() {
    return routine(trace_, {"getDefaultCalibrationCoeffs_nsec"}, [&] {
        CalibrationCoefficients coefficients;
        coefficients.A = default_a_ns();
        coefficients.B = default_b_ns();
        return coefficients;
    });
}

CalibrationObject MassCalibration::default_object_ns() {
    return routine(trace_, {"getDefaultMTObj_nsec"}, [&] {
        CalibrationObject calibration = current();
        CalibrationSettings settings = calibration->settings();
        settings.CalReserved1 = to_int32(instrument_->dictionary_item(contract::dictionary_item.reserved_1));
        settings.CalTraditionalWeighting =
            to_int32(instrument_->dictionary_item(contract::dictionary_item.traditional_weighting));
        settings.CalPolynomialWeighting =
            to_int32(instrument_->dictionary_item(contract::dictionary_item.polynomial_weighting));
        calibration->set_settings(settings);
        calibration->set_coefficients(default_coefficients_ns());
        return calibration;
    });
}

void MassCalibration::store(const CalibrationObject& calibration) {
    routine(trace_, {"WriteThisCalibrationObjToDD", store_trace_level}, [&](TraceObj& record) {
        if (!calibration) raise_runtime_fault(error_number::object_not_set, "calibration object");
        const bool positive = setpoints_.is_positive();
        record.TR_PRINT("Saving new coefficients to ", positive ? "positive" : "negative", " mode calibrant");
        instrument_->calibrations().store(positive ? contract::polarity.positive : contract::polarity.negative,
                                          *calibration);
    });
}

void MassCalibration::set_a_and_t0_us(double a, double t0) {
    routine(trace_, {"SetNewCalibrationWithTheseAAndt0Values_usec"}, [&] {
        const CalibrationObject calibration = current();
        CalibrationCoefficients coefficients = calibration->coefficients();
        coefficients.A = a;
        coefficients.B = t0;
        calibration->set_coefficients(to_ns(coefficients));
        store(calibration);
    });
}

}  // namespace korvane
