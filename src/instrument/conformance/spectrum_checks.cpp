// Spectra and their metadata, and the peak finder on two peaks far apart on a flat baseline without noise.
#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr int most_spectra = 10;

/// Positions as the library finds them: it stops at the second hit.
META_INDEX metadata_positions(InstrumentGlobals& globals, const VariantArray<std::string>& description) {
    const std::string experiment = globals.parameter_name(contract::parameter.experiment);
    const std::string polarity = globals.setpoints().external_name(contract::setpoint.polarity);
    META_INDEX found{-1, -1};
    int hits = 0;
    for (std::int32_t position = 0; position <= description.upper_bound() && hits < 2; ++position) {
        const std::string& entry = description.at(position);
        const auto names = [&](const std::string& part) { return entry.find(part) != std::string::npos; };
        if (names(experiment)) found.lExpIndex = position, ++hits;
        if (names(polarity) && names(contract::metadata_name.setpoint_mark)) found.lPolarityIndex = position, ++hits;
    }
    return found;
}

/// Names are sought by their beginning, and the first item that has it counts.
std::string unless_each_setpoint_found(SetpointTable& table, const std::vector<MetaItem>& items) {
    for (const contract::Number& setpoint : contract::entries<contract::Number>(contract::setpoint)) {
        const std::string name = table.external_name(setpoint);
        const auto item = std::ranges::find_if(items, [&](const MetaItem& each) {
            return equal_but_for_case(std::string_view(each.name).substr(0, name.size()), name);
        });
        if (item == items.end()) return "no item [" + name + "]";
        if (item->name.size() != name.size()) return "[" + item->name + "] stands before [" + name + "]";
        if (const std::string fault = unless_answer(item->value, setpoint.unit); !fault.empty())
            return "[" + name + "]: " + fault;
    }
    return {};
}

constexpr double interval_ns = 1;
constexpr double start_ns = 10000;
constexpr double end_ns = 14000;
constexpr double baseline_counts = 300;
constexpr double sigma_ns = 2.5;
constexpr double full_width_ns = fwhm_per_sigma * sigma_ns;

struct KnownPeak {
    double centre_ns;
    double height;
};
constexpr KnownPeak small_peak{11000.3, 20000};
constexpr KnownPeak large_peak{12500.6, 90000};

std::vector<std::int32_t> two_peaks() {
    std::vector<std::int32_t> counts;
    for (double time_ns = start_ns; time_ns < end_ns; time_ns += interval_ns) {
        double value = baseline_counts;
        for (const KnownPeak& peak : {small_peak, large_peak})
            value += peak.height * std::exp(-0.5 * std::pow((time_ns - peak.centre_ns) / sigma_ns, 2));
        counts.push_back(to_int32(value));
    }
    return counts;
}

constexpr std::tuple<const char*, double, double, std::int32_t> searches[] = {
    {"the gap", large_peak.centre_ns + 200, large_peak.centre_ns + 800, 0},
    {"a window", small_peak.centre_ns - 100, small_peak.centre_ns + 100, 1},
    {"the whole spectrum", start_ns, end_ns, 2}};

void check_list(ConformanceChecks& checks, PeakList& peaks, const CalibrationObject& calibration) {
    const std::string get = "PeakList.GetPeakAttributeInfo";
    checks.check("PeakList.order", "by height, the largest first", [&] {
        peaks.order(height_position, 0);
        const double first = peaks.GetPeakAttributeInfo(0, true).pkHeight;
        return unless(first > peaks.GetPeakAttributeInfo(1, true).pkHeight, "the smaller is first");
    });
    checks.check(get, "centroid within a tenth of the width, height within 5 %", [&] {
        const PeakInfo peak = peaks.GetPeakAttributeInfo(0, true);
        return first_of(unless_near(peak.pkCentroid, large_peak.centre_ns, 0.1 * full_width_ns / large_peak.centre_ns),
                        unless_near(peak.pkHeight, large_peak.height, 0.05));
    });
    for (const std::int32_t index : {-1, 2})
        checks.refuses(get + (" of peak " + text_of(index)), error_number::subscript, "",
                       [&] { peaks.GetPeakAttributeInfo(index, true); });
    if (!calibration) return;
    checks.check("PeakList.convert", "gives amu by the calibration, and nanoseconds on request", [&] {
        peaks.convert(*calibration, convert_to_amu_mode);
        const double time_ns = peaks.GetPeakAttributeInfo(0, false).pkCentroid;
        return unless_near(peaks.GetPeakAttributeInfo(0, true).pkCentroid, calibration->mass_from_time(time_ns), 1e-6);
    });
    checks.check("PeakList.convert", "a second time changes nothing", [&] {
        const PeakInfo once = peaks.GetPeakAttributeInfo(0, true);
        peaks.convert(*calibration, convert_to_amu_mode);
        return unless(peaks.GetPeakAttributeInfo(0, true) == once, "it does");
    });
    checks.refuses("PeakList.convert of mode 99", error_number::invalid_call, "",
                   [&] { peaks.convert(*calibration, 99); });
}

}  // namespace

void check_spectra(ConformanceChecks& checks, InstrumentGlobals& globals) {
    InstrumentControl* control = nullptr;
    checks.check("InstrumentGlobals.control", "instrument control is connected", [&] {
        control = globals.control();
        return unless(control, "it is not; spectra are not checked");
    });
    if (!control) return;
    const char* const next = "InstrumentControl.GetNextSpectrum";
    VariantArray<std::string> description;
    META_INDEX positions;
    AcquiredSpectrum spectrum;
    // Any other value than 0 counts as negative.
    const auto current_polarity = [&] {
        const bool is_positive = to_double(globals.setpoints().value(contract::setpoint.polarity, 0, 0)) == 0;
        return is_positive ? contract::polarity.positive.key : contract::polarity.negative.key;
    };
    // One that comes empty, which the library waits over, is sound.
    const auto is_empty = [&] {
        return spectrum.mass_data.is_empty() && spectrum.y_data.is_empty() && spectrum.meta_data.is_empty();
    };
    checks.check("InstrumentControl.GetMetaDescription", "names the experiment and, with \"(S)\", the polarity", [&] {
        description = control->GetMetaDescription();
        positions = metadata_positions(globals, description);
        return first_of(unless(positions.lExpIndex >= 0, "no entry of the experiment"),
                        unless(positions.lPolarityIndex >= 0, "no entry of the polarity"));
    });
    checks.check(next, "as many masses as abundances, from index 0", [&] {
        globals.refresh();
        control->GetNextSpectrum(spectrum);
        if (is_empty()) return std::string();
        const auto& [masses, samples] = std::tie(spectrum.mass_data, spectrum.y_data);
        return unless(masses.size() > 1 && masses.size() == samples.size() && masses.lower_bound() == 0 &&
                          samples.lower_bound() == 0 && spectrum.meta_data.lower_bound() == 0,
                      text_of(masses.size(), " from ", masses.lower_bound(), ", ", samples.size(), " from ",
                              samples.lower_bound(), ", metadata from ", spectrum.meta_data.lower_bound()));
    });
    checks.check(next, "the masses are finite and ascend", [&] {
        double below = 0;
        for (const double mass : spectrum.mass_data.elements())
            if (!std::isfinite(mass) || std::exchange(below, mass) >= mass) return text_of(mass, " after ", below);
        return std::string();
    });
    checks.check(next, "the abundances are numbers of 32 bits", [&] {
        constexpr double most = std::numeric_limits<std::int32_t>::max();
        for (const double counts : spectrum.y_data.elements())
            if (!(counts >= -most && counts <= most)) return text_of(counts);
        return std::string();
    });
    checks.check(next, "start time and sampling interval (ns) fit the calibration of the polarity", [&] {
        if (is_empty()) return std::string();
        const CalibrationObject calibration = globals.calibrations().calibration(current_polarity());
        if (!calibration) return std::string("there is none");
        const std::int32_t last = spectrum.mass_data.upper_bound();
        const double first_ns = calibration->time_from_mass(spectrum.mass_data.at(0));
        const double mean_ns = (calibration->time_from_mass(spectrum.mass_data.at(last)) - first_ns) / last;
        return first_of(unless_near(spectrum.start_time_ns, first_ns, 1e-3),
                        unless_near(globals.sampling_interval_seconds() * 1e9, mean_ns, 1e-2));
    });
    checks.check(next, "one metadata value for every description, the polarity's that of its setpoint", [&] {
        if (is_empty()) return std::string();
        if (spectrum.meta_data.size() != description.size())
            return text_of(spectrum.meta_data.size(), " for ", description.size());
        for (std::int32_t i = 0; i <= description.upper_bound(); ++i)
            if (const std::string fault = unless_answer(spectrum.meta_data.at(i), "code"); !fault.empty())
                return "[" + description.at(i) + "]: " + fault;
        const double polarity = to_double(spectrum.meta_data.at(positions.lPolarityIndex));
        return unless((polarity == 0 || polarity == 1) && polarity == current_polarity(),
                      text_of("polarity ", polarity));
    });
    checks.check("InstrumentControl.next_spectrum_metadata", "an item for every setpoint of the contract",
                 [&] { return unless_each_setpoint_found(globals.setpoints(), control->next_spectrum_metadata()); });
    checks.check("InstrumentControl.read_register", "pre-run state within ten spectra", [&] {
        double state = control->read_register(contract::instrument_register.run_state);
        for (int i = 0; state != contract::run_state.pre_run && i < most_spectra; ++i) {
            control->GetNextSpectrum(spectrum);
            state = control->read_register(contract::instrument_register.run_state);
        }
        return unless(state == contract::run_state.pre_run, text_of("state ", state));
    });
    checks.refuses("InstrumentControl.read_register", error_number::invalid_call, unknown_text,
                   [&] { control->read_register(unknown_text); });
}

void check_peak_finder(ConformanceChecks& checks, InstrumentLayer& layer, const CalibrationObject& calibration) {
    const std::vector<std::int32_t> counts = two_peaks();
    std::unique_ptr<PeakFinder> finder;
    PeakListObject peaks;
    bool found = false;
    for (const auto& [where, from_ns, to_ns, expected] : searches)
        found = checks.check("PeakFinder.run", text_of(expected, " peaks in ", where), [&] {
            finder = layer.create_peak_finder();
            if (!finder) return std::string("create_peak_finder made nothing");
            finder->set_sampling_interval_ns(interval_ns);
            finder->set_minimum_samples(contract::peak_finder.minimum_samples);
            finder->set_baseline_removal(contract::peak_finder.baseline_removal);
            finder->set_search_start_ns(from_ns);
            finder->set_search_end_ns(to_ns);
            finder->set_samples(counts);
            peaks = finder->run(start_ns);
            const std::int32_t count = peaks ? peaks->count() : 0;
            return unless(count == expected, text_of(count));
        });
    if (!found) return;
    checks.check("PeakFinder.baseline", "within 10 %",
                 [&] { return unless_near(finder->baseline(), baseline_counts, 0.1); });
    check_list(checks, *peaks, calibration);
}

}  // namespace korvane
