#include <algorithm>

#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr std::int32_t polarity_index = 119;
constexpr std::int32_t experiment_parameter = 23;
constexpr const char* run_state = "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]";
constexpr const char* missing_register = "NO.SUCH[REGISTER]";

void check_description(ConformanceChecks& checks, InstrumentGlobals& globals, InstrumentControl& control) {
    checks.check("InstrumentControl.GetMetaDescription", "names the experiment and, with \"(S)\", the polarity", [&] {
        const auto description = control.GetMetaDescription();
        const std::string experiment = globals.parameter_name(experiment_parameter);
        const std::string polarity = globals.setpoints().external_name(polarity_index);
        const auto texts = description.elements();
        const auto contains = [](const std::string& text, const std::string& part) {
            return !part.empty() && text.find(part) != std::string::npos;
        };
        if (!std::any_of(texts.begin(), texts.end(), [&](const auto& text) { return contains(text, experiment); }))
            return "no entry names [" + experiment + "]";
        return unless(std::any_of(texts.begin(), texts.end(),
                                  [&](const auto& text) { return contains(text, polarity) && contains(text, "(S)"); }),
                      "no entry names [" + polarity + "] with (S)");
    });
}

void check_spectrum(ConformanceChecks& checks, InstrumentGlobals& globals, InstrumentControl& control) {
    AcquiredSpectrum spectrum;
    checks.check("InstrumentControl.GetNextSpectrum", "fills masses and abundances, equally many", [&] {
        globals.refresh();
        control.GetNextSpectrum(spectrum);
        return unless(spectrum.mass_data.size() > 1 && spectrum.mass_data.size() == spectrum.y_data.size(),
                      std::to_string(spectrum.mass_data.size()) + " masses, " + std::to_string(spectrum.y_data.size()) +
                          " abundances");
    });
    checks.check("InstrumentControl.GetNextSpectrum", "the masses ascend", [&] {
        const auto masses = spectrum.mass_data.elements();
        return unless(std::adjacent_find(masses.begin(), masses.end(), std::greater_equal<>()) == masses.end(),
                      "they do not");
    });
    checks.check("InstrumentControl.GetNextSpectrum", "arrays begin at index 0", [&] {
        return unless(spectrum.mass_data.lower_bound() == 0 && spectrum.y_data.lower_bound() == 0 &&
                          spectrum.meta_data.lower_bound() == 0,
                      "they do not");
    });
    checks.check("InstrumentControl.GetNextSpectrum", "one metadata value for every description", [&] {
        const std::size_t described = control.GetMetaDescription().size();
        return unless(spectrum.meta_data.size() == described,
                      std::to_string(spectrum.meta_data.size()) + " for " + std::to_string(described));
    });
    checks.check(
        "InstrumentControl.GetNextSpectrum", "the first sample's time fits the calibration of the polarity", [&] {
            const auto polarity = to_int32(globals.setpoints().value(polarity_index, 0, 0));
            const double mass = globals.calibrations().calibration(polarity)->mass_from_time(spectrum.start_time_ns);
            const double first = spectrum.mass_data.at(0);
            return unless(std::fabs(mass - first) <= 1e-3 * first,
                          "mass " + number_text(first) + " at the time of mass " + number_text(mass));
        });
}

void check_metadata(ConformanceChecks& checks, InstrumentControl& control) {
    checks.check("InstrumentControl.next_spectrum_metadata", "items with names", [&] {
        const auto items = control.next_spectrum_metadata();
        return unless(!items.empty() && std::none_of(items.begin(), items.end(),
                                                     [](const MetaItem& item) { return item.name.empty(); }),
                      std::to_string(items.size()) + " items");
    });
    checks.check("InstrumentControl.read_register", std::string("a number for ") + run_state,
                 [&] { return unless(std::isfinite(control.read_register(run_state)), "none"); });
    checks.refuses("InstrumentControl.read_register", "error 5 naming an unknown register", error_number::invalid_call,
                   missing_register, [&] { control.read_register(missing_register); });
}

}  // namespace

void check_control(ConformanceChecks& checks, InstrumentGlobals& globals) {
    InstrumentControl* control = nullptr;
    checks.check("InstrumentGlobals.control", "instrument control is connected", [&] {
        control = globals.control();
        return unless(control, "it is not; spectra are not checked");
    });
    if (!control) return;
    check_description(checks, globals, *control);
    check_spectrum(checks, globals, *control);
    check_metadata(checks, *control);
}

}  // namespace korvane
