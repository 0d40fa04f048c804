#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr std::int32_t missing_polarity = 7;
const std::vector<double> masses{120.0, 622.0, 1522.0};

std::string relative_difference(double measured, double expected) {
    return unless(std::fabs(measured - expected) <= 1e-9 * std::fabs(expected),
                  number_text(measured) + " instead of " + number_text(expected));
}

std::string compare(const std::vector<double>& measured, const std::vector<double>& expected) {
    if (measured.size() != expected.size()) return std::to_string(measured.size()) + " values";
    for (std::size_t place = 0; place < measured.size(); ++place)
        if (std::string difference = relative_difference(measured[place], expected[place]); !difference.empty())
            return difference;
    return {};
}

void check_calibration(ConformanceChecks& checks, const std::string& polarity, const CalibrationObject& calibration) {
    const auto operation = [&](const char* name) { return std::string("MassTimeCalibration.") + name + polarity; };
    checks.check(operation("time_from_mass"), "is undone by mass_from_time", [&] {
        std::vector<double> back;
        for (const double mass : masses) back.push_back(calibration->mass_from_time(calibration->time_from_mass(mass)));
        return compare(back, masses);
    });
    checks.check(operation("times_from_masses"), "agrees with time_from_mass", [&] {
        std::vector<double> single;
        for (const double mass : masses) single.push_back(calibration->time_from_mass(mass));
        return compare(calibration->times_from_masses(masses), single);
    });
    checks.check(operation("masses_from_times"), "agrees with mass_from_time", [&] {
        return compare(calibration->masses_from_times(calibration->times_from_masses(masses)), masses);
    });
    checks.check(operation("coefficients"), "A is above 0",
                 [&] { return unless(calibration->coefficients().A > 0, number_text(calibration->coefficients().A)); });
    checks.check(operation("use_flags"), "an array",
                 [&] { return unless(!calibration->use_flags().is_empty(), "none"); });
    checks.check(operation("clone"), "is independent", [&] {
        const CalibrationCoefficients before = calibration->coefficients();
        const auto copy = calibration->clone();
        CalibrationCoefficients other = before;
        other.B += 1;
        copy->set_coefficients(other);
        CalibrationSettings settings = copy->settings();
        settings.CalReserved1 += 1;
        copy->set_settings(settings);
        if (copy->coefficients() != other || copy->settings() != settings)
            return std::string("the copy keeps no change");
        return unless(calibration->coefficients() == before, "a change of the copy changed the calibration");
    });
}

}  // namespace

void check_calibrations(ConformanceChecks& checks, InstrumentGlobals& globals) {
    for (const std::int32_t polarity : {0, 1}) {
        const std::string name = polarity == 0 ? " (positive)" : " (negative)";
        CalibrationObject calibration;
        checks.check("CalibrationStore.calibration" + name, "lends an object", [&] {
            calibration = globals.calibrations().calibration(polarity);
            return unless(calibration != nullptr, "nothing");
        });
        if (!calibration) continue;
        check_calibration(checks, name, calibration);
        checks.check("CalibrationStore.store" + name, "what was stored is lent", [&] {
            const CalibrationCoefficients before = calibration->coefficients();
            globals.calibrations().store(polarity, *calibration->clone());
            return unless(globals.calibrations().calibration(polarity)->coefficients() == before, "other coefficients");
        });
    }
    checks.refuses("CalibrationStore.calibration", "error 5 naming a polarity that there is not",
                   error_number::invalid_call, std::to_string(missing_polarity),
                   [&] { globals.calibrations().calibration(missing_polarity); });
}

}  // namespace korvane
