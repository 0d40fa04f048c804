// The calibrations that the instrument lends.
#include <cmath>

#include "instrument/conformance/checks.h"

namespace korvane {

namespace {

const std::vector<double> calibration_masses{120.0, 622.0, 1522.0};
constexpr double no_mass = -1;
constexpr double highest_mass = 20000;  // of the library's mass ranges
constexpr std::int32_t no_polarity = 7;

std::string unless_all_near(const std::vector<double>& measured, const std::vector<double>& expected) {
    if (measured.size() != expected.size()) return text_of(measured.size(), " values");
    for (std::size_t place = 0; place < measured.size(); ++place)
        if (std::string difference = unless_near(measured[place], expected[place], 1e-9); !difference.empty())
            return difference;
    return {};
}

std::string unless_clone_is_independent(const MassTimeCalibration& calibration) {
    const CalibrationCoefficients before = calibration.coefficients();
    const auto copy = calibration.clone();
    if (!copy) return "nothing";
    CalibrationCoefficients other = before;
    other.B += 1;
    copy->set_coefficients(other);
    CalibrationSettings settings = copy->settings();
    settings.CalReserved1 += 1;
    copy->set_settings(settings);
    if (copy->coefficients() != other || copy->settings() != settings) return "the copy keeps no change";
    return unless(calibration.coefficients() == before, "a change of the copy changed the calibration");
}

void check_calibration(ConformanceChecks& checks, const std::string& polarity, const MassTimeCalibration& calibration) {
    const auto check = [&](const char* name, const char* expected, const std::function<std::string()>& body) {
        checks.check(text_of("MassTimeCalibration.", name, polarity), expected, body);
    };
    std::vector<double> times;
    check("time_from_mass", "is undone by mass_from_time", [&] {
        std::vector<double> back;
        for (const double mass : calibration_masses) {
            times.push_back(calibration.time_from_mass(mass));
            back.push_back(calibration.mass_from_time(times.back()));
        }
        return unless_all_near(back, calibration_masses);
    });
    check("time_from_mass", "gives a flight time up to the highest mass", [&] {
        const double time_ns = calibration.time_from_mass(highest_mass);
        return unless(std::isfinite(time_ns) && time_ns > 0, text_of(time_ns, " for ", highest_mass));
    });
    check("times_from_masses", "agrees with time_from_mass",
          [&] { return unless_all_near(calibration.times_from_masses(calibration_masses), times); });
    check("masses_from_times", "agrees with mass_from_time",
          [&] { return unless_all_near(calibration.masses_from_times(times), calibration_masses); });
    check("coefficients", "A is above 0", [&] { return unless(calibration.coefficients().A > 0, "it is not"); });
    check("use_flags", "an array", [&] { return unless(!calibration.use_flags().is_empty(), "none"); });
    check("clone", "is independent", [&] { return unless_clone_is_independent(calibration); });
    checks.refuses("MassTimeCalibration.time_from_mass" + polarity, error_number::invalid_call, "-1",
                   [&] { calibration.time_from_mass(no_mass); });
}

}  // namespace

CalibrationObject check_calibrations(ConformanceChecks& checks, InstrumentGlobals& globals) {
    CalibrationObject lent[2];
    for (const contract::Number& polarity : contract::entries<contract::Number>(contract::polarity)) {
        const std::string name = text_of(" (", polarity.name, ")");
        CalibrationObject& calibration = lent[polarity];
        checks.check("CalibrationStore.calibration" + name, "lends an object", [&] {
            calibration = globals.calibrations().calibration(polarity);
            return unless(calibration != nullptr, "nothing");
        });
        if (!calibration) continue;
        check_calibration(checks, name, *calibration);
        checks.check("CalibrationStore.store" + name, "what was stored is lent", [&] {
            const auto before = calibration->clone(), other = calibration->clone();
            if (!before || !other) return std::string("clone gives nothing");
            CalibrationCoefficients moved = before->coefficients();
            moved.B += 1;
            other->set_coefficients(moved);
            const auto lends = [&](const MassTimeCalibration& stored) {
                globals.calibrations().store(polarity, stored);
                const CalibrationObject now = globals.calibrations().calibration(polarity);
                return unless(now && now->coefficients() == stored.coefficients(), "other coefficients");
            };
            const std::string failure = lends(*other);
            return first_of(lends(*before), failure);
        });
    }
    checks.refuses("CalibrationStore.calibration", error_number::invalid_call, text_of(no_polarity),
                   [&] { globals.calibrations().calibration(no_polarity); });
    return lent[contract::polarity.positive];
}

}  // namespace korvane
