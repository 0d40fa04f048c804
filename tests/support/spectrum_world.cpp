#include "support/spectrum_world.h"

#include <cmath>

#include "korvane/embedded_parts.h"
#include "platform/text.h"

namespace korvane {

namespace {

constexpr int sample_count = 5500;
constexpr double calibration_a = 1e-3;

void add_setpoints(ScriptedState& state) {
    const auto add = [&](int index, const char* name, double value) {
        state.setpoints[index] = {.value = value, .name = name};
    };
    add(18, "SamplingRate", 1);
    add(69, "Scint", 0);
    add(SpectrumWorld::capillary_voltage_setpoint, "VCap", 4000);
    add(117, "Source", 0);
    add(119, "Polarity", 0);
    add(SpectrumWorld::transients_setpoint, "NumTrans", 10000);
    add(128, "MassRange", 1);
    add(149, "GainMode", 0);
    add(162, "Averaging", 0);
    state.setpoints[SpectrumWorld::adjustable_setpoint] = {
        .value = 70, .lower = 0, .upper = 100, .resolution = 1, .name = "Lens"};
}

void add_configuration(TestPlatform& test) {
    for (const char* name :
         {"AIC_RunFastVersion", "BinarySearchLoggingEnabled", "WaitForReady_SkipAll", "WaitDialogHandlesRunStateAlso",
          "TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum"})
        test.preference(name, "No");
    test.limit("Calibration", "AIC_SearchSpeedUpFactor", "10");
    test.limit("Calibration", "BinarySearchAbTolerance", "20000");
    test.limit("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel", "100000");
}

}  // namespace

std::string joined(const std::vector<std::string>& lines) {
    std::string text = "\n";
    for (const std::string& line : lines) append_text(text, line, "\n");
    return text;
}

SpectrumWorld::SpectrumWorld() {
    add_setpoints(instrument());
    add_configuration(test);
    std::string mass_list = R"(<QTOF_MassListConfiguration><Configuration IonSource="ESI" IonPolarity="Positive">)";
    mass_list += "<MassList>\n";
    for (const double mass : masses) append_text(mass_list, "<mass Used=\"1\">", mass, "</mass>\n");
    write_text(test.base() / "MassLists" / "default_calibration_mass_list.xml",
               mass_list + "</MassList></Configuration></QTOF_MassListConfiguration>\n");
    std::vector<double> axis_masses;
    for (int i = 0; i < sample_count; ++i) {
        const double root = calibration_a * (start_ns + i * interval_ns);
        axis_masses.push_back(root * root);
    }
    axis = VariantArray<double>(std::move(axis_masses));
    samples = VariantArray<double>(std::vector<double>(sample_count, 100.0));
    instrument().sampling_interval_seconds = interval_ns * 1e-9;
    instrument().calibrations[0] = instrument().calibrations[1] =
        make_square_law_calibration({.A = calibration_a}, std::vector<std::int32_t>(8, 0));
    instrument().acquire = [this](AcquiredSpectrum& spectrum, int) { fill(spectrum); };
    instrument().make_finder = [this] { return peaks.make(); };
    for (const double mass : masses) set_peak(mass, 5000);
}

std::vector<std::string> SpectrumWorld::traced_by(const std::string& routine) {
    std::vector<std::string> own;
    for (const std::string& line : test.trace().lines)
        if (line.starts_with(routine + ": ")) own.push_back(line.substr(routine.size() + 2));
    return own;
}

std::vector<std::string> SpectrumWorld::journal_of(const std::string& start) {
    std::vector<std::string> found;
    std::ranges::copy_if(instrument().journal, std::back_inserter(found),
                         [&](const std::string& line) { return line.starts_with(start); });
    return found;
}

std::string SpectrumWorld::transcript() {
    std::vector<std::string> lines, routines{""};
    const std::vector<std::string> log = tune_log();
    std::size_t logged = 0;
    for (const std::string& line : test.trace().lines) {
        const std::string indent(2 * (routines.size() - 1), ' '), own = routines.back() + ": ";
        if (line == "> WriteLineToTuneLogFile" && logged == 0) lines.push_back(indent + "log: " + log.at(logged++));
        if (line == "> WriteLineToTuneLogFile")
            lines.push_back(indent + "log: " + log.at(logged++));
        else if (!line.starts_with("< "))
            lines.push_back(indent + (line.starts_with(own) ? line.substr(own.size()) : line));
        if (line.starts_with("> ")) routines.push_back(line.substr(2));
        if (line == "< " + routines.back()) routines.pop_back();
    }
    return joined(lines);
}

double SpectrumWorld::time_ns(double mass) {
    return std::sqrt(mass) / calibration_a;
}

void SpectrumWorld::set_peak(double mass, double height) {
    const double time = time_ns(mass);
    std::erase_if(peaks.peaks, [&](const PeakInfo& peak) { return peak.pkCentroid == time; });
    if (height == 0) return;
    constexpr double width = 15;
    peaks.peaks.push_back({time, time - 20, 2 * height, time, width, height, time / (2 * width), time + 20});
}

void SpectrumWorld::fill(AcquiredSpectrum& spectrum) {
    const auto polarity = static_cast<std::int32_t>(instrument().setpoint(119).value);
    spectrum.retention_time = 1.5;
    spectrum.experiment = 3;
    spectrum.mass_data = axis;
    spectrum.y_data = samples;
    spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity});
    spectrum.start_time_ns = start_ns;
}

}  // namespace korvane
