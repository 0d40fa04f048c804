// The simulated instrument by its seam: setpoints and what they do, faults of a scene, and what is kept.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <thread>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/simulator_bench.h"
#include "korvane/embedded_parts.h"
#include "platform/automation_arithmetic.h"

namespace korvane {
namespace {

/// A scene of short spectra with these faults.
std::string faulty(const std::string& faults) {
    return R"({"instrument": {"spectrum_duration_ns": 2000}, "faults": {)" + faults + "}}";
}

TEST(Setpoints, TakeTheirLimitsAndRefuseWhatLiesBeyondNamingIt) {
    SimulatorBench bench(faulty(""));
    auto& table = bench.globals->setpoints();
    for (const std::int32_t index : table.indexes()) {
        const double low = table.lower_limit(index), high = table.upper_limit(index);
        for (const double value : {low, high}) {
            table.write(index, 0, 0, value);
            EXPECT_EQ(bench.get(table.internal_name(index)), value) << index;
            EXPECT_EQ(bench.metadata(table.external_name(index)), value) << index;
        }
        for (const double value : {low - 1, high + 1, std::nan(""), HUGE_VAL})
            EXPECT_NE(raised([&] { table.write(index, 0, 0, value); }), "no error") << index << " took " << value;
        EXPECT_EQ(bench.get(table.internal_name(index)), high) << index;
    }
    EXPECT_EQ(raised([&] { table.write(50, 0, 0, 365.5); }),
              "5|Simulator|setpoint[50] refuses value[365.5]: outside its limits [0, 365]");
    for (const auto& [given, kept] : {std::pair{2.5, 2.0}, {3.5, 4.0}, {1666.6667, 1667.0}}) {
        bench.set("NumTransients2GHz", given);
        EXPECT_EQ(bench.get("NumTransients2GHz"), kept);
    }
    EXPECT_TRUE(raised([&] { table.value(119, 1, 0); }).starts_with("9|"));
    EXPECT_TRUE(raised([&] { table.write(119, 0, 2, 1.0); }).starts_with("9|"));
}

// The signal of 1000 ions under one changed setpoint, every one under every source and polarity, computed once.
TEST(Responses, AbundanceFollowsTheCurvesOfTheInstalledSource) {
    double sum = 0;
    for (const auto& definition : embedded::setpoint_definitions())
        for (std::int32_t source = 0; source < 12; ++source)
            for (const std::int32_t polarity : {0, 1}) {
                if (definition.index == 117 || definition.index == 119 || definition.index == 18) continue;
                embedded::Setpoints setpoints("test");
                setpoints.command(117, source);
                setpoints.command(119, polarity);
                setpoints.command(definition.index, 0.6 * definition.lower_limit + 0.4 * definition.upper_limit);
                const auto now = simulation::acquisition_conditions(simulation::default_scene(), polarity, setpoints);
                sum += (source + 2 * polarity + 1) *
                       std::log(now.expected_ions(1000, 700) * now.counts_per_ion / 40 / 1000);
            }
    EXPECT_NEAR(sum, -1730.2476196099165, 1e-6);
}

TEST(Responses, ThePeakFinderIsToldWhatTheSceneAndTheSetpointsSay) {
    SimulatorBench bench(R"({"detector": {"statistics": "pulse"}})");
    for (const auto& [name, value] : {std::pair{"MCP", 660}, {"MidMirror", -1550}, {"NumTransients2GHz", 1000}})
        bench.set(name, value);
    const auto finder = bench.layer->create_peak_finder();
    const PeakFinderOptions& options = dynamic_cast<EmbeddedPeakFinder&>(*finder).options();
    const std::vector<double> told{options.width->resolution_limit, options.width->detector_fwhm_ns,
                                   *options.counts_per_ion,         *options.saturation_counts,
                                   *options.tail_fraction,          *options.tail_pulse_part,
                                   *options.ion_height_spread,      *options.ion_pulse_fwhm_ns};
    const std::vector<double> expected{20000, 1.18, 40 * std::pow(1.1, 10), 255000, 0.08, 1, 0.5, 1.18};
    EXPECT_THAT(told, testing::Pointwise(testing::DoubleNear(1e-6), expected));
    bench.set("MidMirror", -1400);
    bench.set("SlicerPosition", 6);
    const auto sharper = bench.layer->create_peak_finder();
    EXPECT_NEAR(dynamic_cast<EmbeddedPeakFinder&>(*sharper).options().width->resolution_limit, 50000, 1e-6);
}

TEST(Faults, OfASceneShowSpectrumBySpectrumAndEnd) {
    SimulatorBench bench(R"({"instrument": {"spectrum_duration_ns": 2000, "spectrum_period_ms": 100},
        "background": {"count": 0}, "faults": {"empty_spectra": {"first": 1, "count": 2},
        "late_spectra": {"first": 2, "count": 1}, "late_milliseconds": 20000,
        "wrong_polarity": {"first": 3, "count": 1}, "not_ready_polls": 2, "run_state_polls": 3,
        "setpoints": [{"setpoint": "Lens2", "after_spectra": 3}, {"setpoint": "Lens1", "never": true}]}})");
    SimulatorBench never(faulty(R"("not_ready_polls": -1)"));
    const auto meta = [&](const AcquiredSpectrum& spectrum, const std::string& name) {
        const auto description = bench.globals->control()->GetMetaDescription();
        const auto found = std::ranges::find(description.elements(), name + " (S)");
        return to_double(spectrum.meta_data.at(static_cast<std::int32_t>(found - description.elements().begin())));
    };
    std::vector<std::string> lines;
    for (int number = 0; number < 6; ++number) {
        if (number % 3 == 0) bench.set("Lens2", 50 + number);
        if (number == 0) bench.set("Lens1", 50);
        const double start = bench.clock->total_seconds();
        const auto spectrum = bench.acquire();
        std::string line = fmt::format("{:.1f} s", bench.clock->total_seconds() - start);
        EXPECT_EQ(spectrum.mass_data.is_empty(), spectrum.y_data.is_empty());
        EXPECT_EQ(spectrum.meta_data.is_empty(), spectrum.y_data.is_empty());
        line += spectrum.y_data.is_empty() ? ", empty"
                                           : fmt::format(", polarity {}, lenses {} {}", meta(spectrum, "Polarity"),
                                                         meta(spectrum, "Lens 1"), meta(spectrum, "Lens 2"));
        line +=
            fmt::format(", ready {}, run state {}", to_double(bench.globals->actual_value("ACTUAL.NDR[NRDYSTATE]", "")),
                        bench.globals->control()->read_register("REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"));
        lines.push_back(line);
        EXPECT_EQ(never.globals->control()->read_register("ACTUAL.NDR[NRDYSTATE]"), -1);
    }
    EXPECT_THAT(lines, testing::ElementsAre("0.1 s, polarity 0, lenses 36 22, ready -1, run state 2",  //
                                            "0.1 s, empty, ready -1, run state 2",                     //
                                            "20.1 s, empty, ready 0, run state 2",                     //
                                            "0.1 s, polarity 1, lenses 36 50, ready 0, run state 1",   //
                                            "0.1 s, polarity 0, lenses 36 50, ready 0, run state 1",
                                            "0.1 s, polarity 0, lenses 36 53, ready 0, run state 1"));
    EXPECT_EQ(bench.get("Polarity"), 0);
    EXPECT_EQ(bench.get("Lens1"), 50);
    for (const std::string name : {"SlicerPos[0].Hours", "SlicerPos[11].Hours", "coefa", "Other"})
        EXPECT_TRUE(
            raised([&] { bench.globals->dictionary_item(name); }).ends_with("data dictionary item[" + name + "]"));
}

TEST(Views, InSeveralThreadsShareOneInstrumentAndLoseNoSpectrum) {
    SimulatorBench bench(faulty(""));
    std::array<std::vector<double>, 2> times;
    const auto work = [&](std::size_t thread) {
        const auto view = bench.layer->create_globals();
        for (int i = 0; i < 50; ++i) {
            view->setpoints().write(thread == 0 ? 34 : 35, 0, 0, static_cast<double>(i));
            AcquiredSpectrum spectrum;
            view->control()->GetNextSpectrum(spectrum);
            times[thread].push_back(spectrum.retention_time);
        }
    };
    std::thread other(work, 1);
    work(0);
    other.join();
    bench.layer.reset();  // the view keeps the instrument alive
    std::vector<double> all(times[0]);
    all.insert(all.end(), times[1].begin(), times[1].end());
    std::ranges::sort(all);
    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_NEAR(all[i], i * 5000.0 / 6200 / 60, 1e-12);
    EXPECT_EQ(bench.get("Lens1") + bench.get("Lens2"), 98);
}

TEST(Logbook, AppendsOneLineAnEntry) {
    SimulatorBench bench;
    for (const char* text : {"", "note"}) bench.layer->create_logbook_entry()->write(32, "message", 5, 0, 7, text);
    EXPECT_EQ(*bench.disk->content(join_path(join_path("/base", "Logfiles"), "Logbook.txt")),
              "20261121 100000 32 5 0 7 message\n20261121 100000 32 5 0 7 [note] message\n");
    bench.disk->fault = MemoryDisk::Fault{.at = bench.disk->operations + 1};
    EXPECT_NE(raised([&] { bench.layer->create_logbook_entry()->write(32, "x", 5, 0, 0, ""); }).find("Logbook.txt"),
              std::string::npos);
}

TEST(State, ARunSavesItsFirstChangeAndItsEndHoweverMuchItChanges) {
    const auto disk = std::make_shared<MemoryDisk>();
    int saves = 0;
    disk->before_operation = [&](const std::string& operation) { saves += operation == "replace"; };
    const auto kept = [&] { return SimulatorBench("", 1, disk).get("Lens1"); };
    {
        SimulatorBench bench(faulty(""), 1, disk);
        bench.set("Lens1", 36);
        bench.acquire();
        EXPECT_EQ(saves, 0);
        // A save that fails is reported, naming the file, and tried again.
        disk->fault = MemoryDisk::Fault{.at = disk->operations + 1, .stays = true};
        EXPECT_NE(raised([&] { bench.set("Lens1", 10); }).find("|Simulator|state file[/base/state.json]: "),
                  std::string::npos);
        disk->fault.reset();
        for (int value = 1; value < 20; ++value) bench.set("Lens1", value);
        EXPECT_EQ(saves, 1);
        EXPECT_EQ(kept(), 1);
    }
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(kept(), 19);
    EXPECT_EQ(saves, 2);
}

// Programs that share the instrument, one saving after the other.
TEST(State, WhatEachProgramChangedStandsAndHoursAddUp) {
    const auto disk = std::make_shared<MemoryDisk>();
    const CalibrationCoefficients better{.A = 4.4999e-4, .B = 19.9375};
    const auto hours = [](SimulatorBench& bench, int position) {
        return to_double(bench.globals->dictionary_item(fmt::format("SlicerPos[{}].Hours", position)));
    };
    {
        SimulatorBench first(faulty(""), 1, disk);
        first.set("Scintillator", 1);
        auto second = std::make_unique<SimulatorBench>(faulty(""), 1, disk);
        second->set("VCapESI", 2750.125);
        second->set("SlicerPosition", 3);
        second->globals->firmware().write(22, 555.5f);
        auto calibration = second->globals->calibrations().calibration(1)->clone();
        calibration->set_coefficients(better);
        calibration->set_settings({7, 8, 9});
        second->globals->calibrations().store(1, *calibration);
        for (int i = 0; i < 3; ++i) second->acquire();
        first.set("Lens1", 12);
        first.set("Scintillator", 0);
        // A change in place shows at once and is kept only when it is stored.
        auto lent = first.globals->calibrations().calibration(0);
        const double before = first.acquire().mass_data.at(1000);
        lent->set_coefficients({.A = 9e-4, .B = 20});
        EXPECT_NEAR(first.acquire().mass_data.at(1000), 4 * before, 1e-9);
        EXPECT_EQ(first.globals->calibrations().calibration(0), lent);
        second.reset();
    }
    SimulatorBench later(faulty(""), 1, disk);
    for (const auto& [name, value] : {std::pair{"VCapESI", 2750.125}, {"Lens1", 12}, {"Scintillator", 0}})
        EXPECT_EQ(later.get(name), value) << name;
    EXPECT_EQ(later.globals->firmware().read(22), 555.5);
    const auto negative = later.globals->calibrations().calibration(1);
    EXPECT_EQ(negative->coefficients(), better);
    EXPECT_EQ(negative->settings(), (CalibrationSettings{7, 8, 9}));
    EXPECT_EQ(later.globals->calibrations().calibration(0)->coefficients().A, 4.5e-4);
    for (const auto& [position, spectra] : {std::pair{1, 2}, {3, 3}, {2, 0}})
        EXPECT_NEAR(hours(later, position), spectra * 5000.0 / 6200 / 3600, 1e-12);
    SimulatorBench with_terms(R"({"flight": {"use_flags": [0, 1, 0, 1]}})");
    EXPECT_TRUE(raised([&] { with_terms.globals->calibrations().store(0, *negative); }).starts_with("5|"));
}

TEST(State, ABrokenFileIsKeptAndReadOnceItIsMended) {
    SimulatorBench bench;
    const auto layer = make_simulator(bench.options, bench.disk, bench.clock);
    const auto error = [&] { return raised([&] { layer->create_globals(); }); };
    for (const std::string content : {"[]", R"({"format": "korvane simulator state", "version": 1})"}) {
        bench.disk->put("/base/state.json", content);
        EXPECT_EQ(error(), content == "[]"
                               ? "-904|Simulator|item[document] of file[/base/state.json]: must be an object"
                               : "no error");
        EXPECT_EQ(*bench.disk->content("/base/state.json"), content);
    }
}

}  // namespace
}  // namespace korvane
