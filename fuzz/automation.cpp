#include "korvane/automation.h"

#include <charconv>
#include <string>
#include <vector>

#include "fuzz/targets.h"
#include "instrument/masstime/square_law_calibration.h"
#include "korvane/error.h"
#include "support/memory_platform.h"

namespace korvane::fuzz {

namespace {

constexpr const char* preferences_path = "/base/TunePreferences.xml";

std::string preferences_file(const char* abort_flag) {
    std::string text = "<TunePreferences><AbortFlag>" + std::string(abort_flag) + "</AbortFlag>";
    for (const char* name : {"LogSetpointTraffic", "AIC_RunFastVersion", "BinarySearchLoggingEnabled",
                             "WaitForReady_SkipAll", "WaitDialogHandlesRunStateAlso"})
        text.append("<").append(name).append(">No</").append(name).append(">");
    return text + "</TunePreferences>";
}

void put_files(MemoryDisk& disk) {
    disk.put(preferences_path, preferences_file("0"));
    disk.put("/base/TuneParams.xml",
             "<QTOFTuneParams><TOF><AutotuneParameters><RampParams><MinimumAcceptableAbundance>1000"
             "</MinimumAcceptableAbundance></RampParams><PeakHandling><PeakFindWindowInPercentT>0.5"
             "</PeakFindWindowInPercentT></PeakHandling><Calibration><AIC_SearchSpeedUpFactor>10"
             "</AIC_SearchSpeedUpFactor><BinarySearchAbTolerance>100</BinarySearchAbTolerance></Calibration>"
             "</AutotuneParameters></TOF></QTOFTuneParams>");
    disk.put("/base/MassLists/default_calibration_mass_list.xml",
             "<QTOF_MassListConfiguration><Configuration IonSource=\"ESI\" IonPolarity=\"Positive\"><MassList>"
             "<mass Used=\"1\">100</mass><mass Used=\"1\">900</mass></MassList></Configuration>"
             "</QTOF_MassListConfiguration>");
    disk.put("/base/Logfiles/old", "");
}

void connect_instrument(ScriptedState& state) {
    for (const std::int32_t index : {18, 50, 69, 104, 117, 119, 127, 128, 149, 162})
        state.setpoints[index] = {.value = 1, .name = "setpoint " + std::to_string(index)};
    state.setpoints[119].value = 0;
    CalibrationCoefficients coefficients;
    coefficients.A = 1e-3;
    state.calibrations[0] = state.calibrations[1] = std::make_shared<SquareLawCalibration>(
        coefficients, VariantArray<std::int32_t>(std::vector<std::int32_t>(8, 0)), CalibrationSettings{});
    state.acquire = [](AcquiredSpectrum& spectrum, int) {
        spectrum.mass_data = VariantArray<double>(std::vector<double>{50, 100, 400, 900, 1600});
        spectrum.y_data = VariantArray<double>(std::vector<double>{1, 5000, 1, 5000, 1});
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, 0});
        spectrum.start_time_ns = 7000;
    };
}

/// A line that is a number stands for the member with that place in the tables.
std::string member_of(const std::string& line) {
    static const std::vector<automation::MemberSummary> members = automation::member_summaries();
    std::size_t place = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), place);
    if (error != std::errc() || end != line.data() + line.size()) return line;
    const automation::MemberSummary& member = members[place % members.size()];
    return member.class_name + "." + member.name;
}

std::vector<std::string> lines_of(std::string_view input) {
    std::vector<std::string> lines{""};
    for (const char c : input) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
    return lines;
}

}  // namespace

void automation_call(std::string_view input) {
    std::vector<std::string> lines = lines_of(input);
    const std::string member = member_of(lines.front());
    lines.erase(lines.begin());

    const MemoryPlatform world;
    put_files(*world.disk);
    connect_instrument(*world.layer->state);
    // A wait of any length is granted until somebody asks for an end.
    world.clock->on_events = [&, events = 0]() mutable {
        if (++events == 100) world.disk->put(preferences_path, preferences_file("1"));
    };
    try {
        automation::call_from_texts(world.platform(), member, lines);
    } catch (const Error& error) {
        if (error.number() == 0) std::abort();
    }
}

}  // namespace korvane::fuzz
