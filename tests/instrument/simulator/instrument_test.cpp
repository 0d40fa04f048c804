// The simulated instrument by its seam: setpoints and what they do, faults of a scene, and what is kept.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <set>
#include <thread>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/simulator_bench.h"

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
        for (const double value : {low - 1, high + 1, std::nan(""), HUGE_VAL}) {
            EXPECT_NE(raised([&] { table.write(index, 0, 0, value); }), "no error") << index << " took " << value;
            EXPECT_EQ(bench.get(table.internal_name(index)), high) << index;
        }
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

// A metadata item is found by the beginning of its name, case ignored.
TEST(Setpoints, NoExternalNameIsTheBeginningOfAnother) {
    std::vector<std::string> names{"EXPERIMENT"};
    for (const auto& definition : embedded::setpoint_definitions()) {
        std::string& name = names.emplace_back(definition.external_name);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    }
    for (const std::string& name : names)
        EXPECT_EQ(std::ranges::count_if(names, [&](const auto& other) { return other.starts_with(name); }), 1) << name;
}

TEST(Setpoints, MetadataFollowTheOrderOfTheirDescription) {
    SimulatorBench bench(faulty(""));
    bench.set("Polarity", 1);
    bench.set("Lens2", 12.5);
    const auto description = bench.globals->control()->GetMetaDescription();
    const auto values = bench.acquire().meta_data;
    ASSERT_EQ(description.size(), values.size());
    EXPECT_EQ(description.at(0), bench.globals->parameter_name(23));
    const auto value_of = [&](const char* name) {
        const auto found = std::ranges::find(description.elements(), name);
        return values.at(static_cast<std::int32_t>(found - description.elements().begin()));
    };
    EXPECT_EQ(value_of("Polarity (S)"), InstrumentValue(1));
    EXPECT_EQ(value_of("Lens 2 (S)"), InstrumentValue(12.5));
}

TEST(Setpoints, FirmwareChannelAndSetpointAreTheSameQuadrupole) {
    SimulatorBench bench;
    auto& firmware = bench.globals->firmware();
    EXPECT_EQ(firmware.write(22, 1234.5f), 0);
    EXPECT_EQ(bench.get("QuadAMU"), 1234.5);
    bench.set("QuadAMU", 300);
    EXPECT_EQ(firmware.read(22), 300);
    for (const auto& [channel, value] : {std::pair{21, 1.0f}, {22, 1e9f}})
        EXPECT_TRUE(raised([&] { firmware.write(channel, value); }).starts_with("5|")) << channel;
    EXPECT_TRUE(raised([&] { firmware.read(0); }).starts_with("5|"));
}

/// Signal of 1000 ions at an m/z under one changed setpoint, over that at the defaults of the source.
double relative_signal(const std::string& name, double value, double source_type, double polarity, double mz) {
    const simulation::Scene scene = simulation::default_scene();
    embedded::Setpoints setpoints("test");
    setpoints.command(117, source_type);
    setpoints.command(119, polarity);
    setpoints.command(embedded::find_setpoint(name)->index, value);
    const auto conditions = simulation::acquisition_conditions(scene, static_cast<std::int32_t>(polarity), setpoints);
    return conditions.expected_ions(1000, mz) * conditions.counts_per_ion / 40 / 1000;
}

TEST(Responses, AbundanceFollowsItsCurvesAndOnlyThoseOfTheInstalledSource) {
    struct Case {
        const char* setpoint;
        double value, source_type, polarity, mz, expected;
    };
    const auto rising = [](double v, double standard, double middle, double width) {
        return (1 + std::exp(-(standard - middle) / width)) / (1 + std::exp(-(v - middle) / width));
    };
    for (const Case& curve : {Case{"VCapESI", 2000, 0, 0, 500, rising(2000, 3500, 2000, 400)},
                              {"VCapESI", 1000, 5, 1, 2000, rising(1000, 3500, 2000, 400)},
                              {"VCapESI", 1000, 4, 0, 500, 1},
                              {"VCapMultimode", 1400, 4, 0, 500, rising(1400, 2500, 1400, 300)},
                              {"VCapNanoESI", 1000, 6, 0, 500, rising(1000, 1800, 1000, 200)},
                              {"VCapAPPI", 2000, 8, 0, 500, rising(2000, 3500, 2000, 400)},
                              {"VCapHPLCTile", 1000, 1, 0, 500, rising(1000, 1800, 1000, 200)},
                              {"VCapAPCI", 2000, 10, 0, 500, rising(2000, 3500, 2000, 400)},
                              {"VCapSGF", 2000, 11, 0, 500, rising(2000, 3500, 2000, 400)},
                              {"CoronaPositive", 2, 7, 0, 500, rising(2, 4, 2, 0.6)},
                              {"CoronaPositive", 2, 7, 1, 500, 1},
                              {"CoronaNegative", 8, 7, 1, 500, rising(8, 15, 8, 2)},
                              {"VaporizerAPCI", 200, 8, 0, 500, rising(200, 350, 200, 40)},
                              {"SheathGasTemp", 200, 0, 0, 500, 1},
                              {"GasTemp", 150, 0, 0, 500, rising(150, 325, 150, 40)},
                              {"FragmentTune", 90, 0, 0, 1000, rising(90, 175, 90, 20)},
                              {"FragmentTune", 90, 0, 0, 2000, rising(90, 175, 90 * std::pow(2, 0.4), 20)},
                              {"Skimmer1", 120, 0, 0, 500, (1 + std::exp(-55.0 / 15)) / 2},
                              {"Oct1DC", 53, 0, 0, 500, 0.5},
                              {"MCP", 660, 0, 0, 500, std::pow(1.1, 10)},
                              {"Scintillator", 1, 0, 0, 500, (1 + std::exp(-0.5 / 0.36)) / (1 + std::exp(0.5 / 0.36))},
                              {"QuadAMU", 1000, 0, 0, 700, (1 + std::pow(0.1, 8)) / 2},
                              {"PreAmpGainMode", 2, 0, 0, 500, 0.5},
                              {"NumTransients2GHz", 500, 0, 0, 500, 0.1},
                              {"SlicerPosition", 6, 0, 0, 500, 0.5}})
        EXPECT_NEAR(relative_signal(curve.setpoint, curve.value, curve.source_type, curve.polarity, curve.mz),
                    curve.expected, 1e-9 * curve.expected)
            << curve.setpoint << " of source " << curve.source_type << " at " << curve.mz;
}

TEST(Responses, DetunedMirrorAndHighResolutionSliceChangeTheWidth) {
    for (const auto& [index, value, expected] :
         {std::tuple{40, -1550.0, 20000.0}, {170, 6.0, 50000.0}, {170, 5.0, 40000.0}}) {
        embedded::Setpoints setpoints("test");
        setpoints.command(index, value);
        EXPECT_NEAR(simulation::acquisition_conditions(simulation::default_scene(), 0, setpoints).resolution_limit,
                    expected, 1e-6);
    }
}

TEST(Responses, ThePeakFinderIsToldWhatTheSceneAndTheSetpointsSay) {
    for (const bool pulses : {false, true}) {
        SimulatorBench bench(pulses ? R"({"detector": {"statistics": "pulse"}})" : "");
        bench.set("MCP", 660);
        bench.set("MidMirror", -1550);
        bench.set("NumTransients2GHz", 1000);
        const auto finder = bench.layer->create_peak_finder();
        const PeakFinderOptions& options = dynamic_cast<EmbeddedPeakFinder&>(*finder).options();
        EXPECT_NEAR(options.width->resolution_limit, 20000, 1e-6);
        EXPECT_EQ(options.width->detector_fwhm_ns, 1.18);
        EXPECT_NEAR(*options.counts_per_ion, 40 * std::pow(1.1, 10), 1e-9);
        EXPECT_EQ(options.saturation_counts, 255000);
        EXPECT_EQ(options.tail_fraction, 0.08);
        EXPECT_EQ(options.tail_pulse_part, 1);
        EXPECT_EQ(options.ion_height_spread, pulses ? 0.5 : 0);
        EXPECT_EQ(options.ion_pulse_fwhm_ns, pulses ? 1.18 : 0);
    }
}

TEST(Faults, SpectraComeEmptyOrLateAsTold) {
    SimulatorBench bench(R"({"instrument": {"spectrum_duration_ns": 2000, "spectrum_period_ms": 100},
                             "faults": {"empty_spectra": {"first": 1, "count": 2},
                                        "late_spectra": {"first": 2, "count": 1}, "late_milliseconds": 20000}})");
    for (const auto& [empty, seconds] : {std::pair{false, 0.1}, {true, 0.1}, {true, 20.1}, {false, 0.1}}) {
        const double start = bench.clock->total_seconds();
        const auto spectrum = bench.acquire();
        EXPECT_NEAR(bench.clock->total_seconds() - start, seconds, 1e-9);
        EXPECT_EQ(spectrum.mass_data.is_empty(), empty);
        EXPECT_EQ(spectrum.y_data.is_empty(), empty);
        EXPECT_EQ(spectrum.meta_data.is_empty(), empty);
    }
}

TEST(Faults, WrongPolarityShowsInMetadataAndIonsThenEnds) {
    SimulatorBench bench(R"({"faults": {"wrong_polarity": {"first": 0, "count": 2}}, "background": {"count": 0}})");
    SimulatorBench right(R"({"background": {"count": 0}})");
    right.set("Polarity", 1);
    EXPECT_TRUE(std::ranges::equal(bench.acquire().y_data.elements(), right.acquire().y_data.elements()));
    EXPECT_EQ(bench.get("Polarity"), 0);
    EXPECT_EQ(bench.metadata("Polarity"), 1);
    EXPECT_EQ(bench.metadata("Polarity"), 0);
}

TEST(Faults, StatesEndAfterTheirPollsOrNever) {
    const std::string ready = "ACTUAL.NDR[NRDYSTATE]", run_state = "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]";
    SimulatorBench some(faulty(R"("not_ready_polls": 3, "run_state_polls": 2)"));
    SimulatorBench never(faulty(R"("not_ready_polls": -1)"));
    for (int poll = 0; poll < 6; ++poll) {
        EXPECT_EQ(std::get<double>(some.globals->actual_value(ready, "")), poll < 3 ? -1 : 0);
        EXPECT_EQ(some.globals->control()->read_register(run_state), poll < 2 ? 2 : 1);
        EXPECT_EQ(never.globals->control()->read_register(ready), -1);
    }
    for (const std::string name : {"SlicerPos[0].Hours", "SlicerPos[11].Hours", "coefa", "Other"})
        EXPECT_TRUE(
            raised([&] { some.globals->dictionary_item(name); }).ends_with("data dictionary item[" + name + "]"));
    EXPECT_EQ(some.globals->dictionary_item("SlicerPos.Count"), InstrumentValue(10));
    EXPECT_EQ(some.globals->dictionary_item("SlicerPos[6].HighResolution"), InstrumentValue(1));
}

TEST(Faults, ASetpointArrivesAfterItsSpectraEveryTimeOrNever) {
    SimulatorBench bench(
        faulty(R"("setpoints": [{"setpoint": "Polarity", "after_spectra": 3}, {"setpoint": "Lens1", "never": true}])"));
    bench.set("Lens1", 50);
    for (const double target : {1.0, 0.0}) {
        bench.set("Polarity", target);
        for (const bool arrived : {false, false, true, true})
            EXPECT_EQ(bench.metadata("Polarity"), arrived ? target : 1 - target);
    }
    EXPECT_EQ(bench.get("Lens1"), 50);
    EXPECT_EQ(bench.metadata("Lens 1"), 36);
}

TEST(Views, ShareOneInstrumentAndKeepItAlive) {
    SimulatorBench bench(faulty(""));
    const auto other = bench.layer->create_globals();
    bench.layer.reset();
    bench.set("Lens1", 41.5);
    EXPECT_EQ(std::get<double>(other->setpoints().value(34, 0, 0)), 41.5);
    bench.globals.reset();
    AcquiredSpectrum spectrum;
    other->control()->GetNextSpectrum(spectrum);
    EXPECT_EQ(spectrum.y_data.size(), 4000u);
}

TEST(Views, InSeveralThreadsLoseNoSpectrumAndNoSetpoint) {
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
    std::set<double> different(times[0].begin(), times[0].end());
    different.insert(times[1].begin(), times[1].end());
    EXPECT_EQ(different.size(), 100u);
    EXPECT_NEAR(*different.rbegin(), 99 * 5000.0 / 6200 / 60, 1e-12);
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

TEST(State, SetpointsAndStoredCalibrationsSurviveTheProgram) {
    const auto disk = std::make_shared<MemoryDisk>();
    const CalibrationCoefficients better{.A = 4.4999e-4, .B = 19.9375};
    {
        SimulatorBench first("", 1, disk);
        first.set("VCapESI", 2750.125);
        first.set("MassRange", 0);
        first.globals->firmware().write(22, 555.5f);
        auto calibration = first.globals->calibrations().calibration(1)->clone();
        calibration->set_coefficients(better);
        calibration->set_settings({7, 8, 9});
        first.globals->calibrations().store(1, *calibration);
        // A change in place shows at once and is kept only when it is stored.
        auto lent = first.globals->calibrations().calibration(0);
        const double before = first.acquire().mass_data.at(1000);
        lent->set_coefficients({.A = 9e-4, .B = 20});
        EXPECT_NEAR(first.acquire().mass_data.at(1000), 4 * before, 1e-9);
        EXPECT_EQ(first.globals->calibrations().calibration(0), lent);
    }
    SimulatorBench second("", 1, disk);
    EXPECT_EQ(second.get("VCapESI"), 2750.125);
    EXPECT_EQ(second.get("MassRange"), 0);
    EXPECT_EQ(second.globals->firmware().read(22), 555.5);
    const auto negative = second.globals->calibrations().calibration(1);
    EXPECT_EQ(negative->coefficients(), better);
    EXPECT_EQ(negative->settings(), (CalibrationSettings{7, 8, 9}));
    EXPECT_EQ(second.globals->calibrations().calibration(0)->coefficients().A, 4.5e-4);
    SimulatorBench with_terms(R"({"flight": {"use_flags": [0, 1, 0, 1]}})");
    EXPECT_TRUE(raised([&] { with_terms.globals->calibrations().store(0, *negative); }).starts_with("5|"));
}

TEST(State, SlicerHoursGoOnWhereTheLastProgramStopped) {
    const auto disk = std::make_shared<MemoryDisk>();
    const double hours_a_spectrum = 5000.0 / 6200 / 3600;
    for (int run = 1; run <= 3; ++run) {
        SimulatorBench bench("", 1, disk);
        bench.set("SlicerPosition", 3);
        for (int i = 0; i < 100; ++i) bench.metadata("Polarity");
        const double hours = std::get<double>(bench.globals->dictionary_item("SlicerPos[3].Hours"));
        EXPECT_NEAR(hours, run * 100 * hours_a_spectrum, 1e-9);
        EXPECT_EQ(std::get<double>(bench.globals->dictionary_item("SlicerPos[1].Hours")), 0);
    }
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
        for (int value = 1; value < 20; ++value) bench.set("Lens1", value);
        EXPECT_EQ(saves, 1);
        EXPECT_EQ(kept(), 1);
    }
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(kept(), 19);
    EXPECT_EQ(saves, 2);
}

TEST(State, AFailedSaveIsReportedNamingTheFileAndTriedAgain) {
    SimulatorBench bench;
    bench.disk->fault = MemoryDisk::Fault{.at = bench.disk->operations + 1, .stays = true};
    EXPECT_NE(raised([&] { bench.set("Lens1", 10); }).find("|Simulator|state file[/base/state.json]: "),
              std::string::npos);
    bench.disk->fault.reset();
    bench.set("Lens2", 10);
    EXPECT_EQ(SimulatorBench("", 1, bench.disk).get("Lens1"), 10);
}

TEST(State, FilesAreReadWhenTheInstrumentIsFirstNeeded) {
    SimulatorBench bench;
    bench.options.scene_path = "/base/scene.json";
    const auto layer = make_simulator(bench.options, bench.disk, bench.clock);
    EXPECT_EQ(layer->create_path_information()->base_folder(), "/base");
    const auto error = [&] { return raised([&] { layer->create_globals(); }); };
    EXPECT_TRUE(error().starts_with("-904|Simulator|scene file[/base/scene.json]: ")) << error();
    bench.disk->put("/base/scene.json", "[]");
    EXPECT_EQ(error(), "-904|Simulator|item[document] of file[/base/scene.json]: must be an object");
    bench.disk->put("/base/scene.json", "{}");
    bench.disk->put("/base/state.json", "[]");
    EXPECT_EQ(error(), "-904|Simulator|item[document] of file[/base/state.json]: must be an object");
    EXPECT_EQ(*bench.disk->content("/base/state.json"), "[]");
    bench.disk->put("/base/state.json", R"({"format": "korvane simulator state", "version": 1})");
    EXPECT_EQ(error(), "no error");
}

}  // namespace
}  // namespace korvane
