// What the state file keeps from one program to the next, and what it refuses.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>
#include <thread>

#include "instrument/simulator/simulator_bench.h"

namespace korvane {
namespace {

using simulation::parse_state;

const std::string head = R"({"format": "korvane simulator state", "version": 1)";

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
    }
    SimulatorBench second("", 1, disk);
    EXPECT_EQ(second.get("VCapESI"), 2750.125);
    EXPECT_EQ(second.get("MassRange"), 0);
    EXPECT_EQ(second.globals->firmware().read(22), 555.5);
    const auto negative = second.globals->calibrations().calibration(1);
    EXPECT_EQ(negative->coefficients(), better);
    EXPECT_EQ(negative->settings(), (CalibrationSettings{7, 8, 9}));
    EXPECT_EQ(second.globals->calibrations().calibration(0)->coefficients().B, 20);
}

TEST(State, ChangesInPlaceShowAtOnceAndAreKeptOnlyWhenStored) {
    const auto disk = std::make_shared<MemoryDisk>();
    SimulatorBench first("", 1, disk);
    const double before = first.acquire().mass_data.at(1000);
    auto lent = first.globals->calibrations().calibration(0);
    lent->set_coefficients({.A = 9e-4, .B = 20});
    EXPECT_NEAR(first.acquire().mass_data.at(1000), 4 * before, 1e-9);
    EXPECT_EQ(first.globals->calibrations().calibration(0), lent);
    EXPECT_EQ(SimulatorBench("", 1, disk).globals->calibrations().calibration(0)->coefficients().A, 4.5e-4);
    first.globals->calibrations().store(0, *lent);
    EXPECT_EQ(SimulatorBench("", 1, disk).globals->calibrations().calibration(0)->coefficients().A, 9e-4);
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

TEST(State, ViewsShareOneInstrumentAndKeepItAlive) {
    SimulatorBench bench;
    const auto other = bench.layer->create_globals();
    bench.layer.reset();
    bench.set("Lens1", 41.5);
    EXPECT_EQ(std::get<double>(other->setpoints().value(34, 0, 0)), 41.5);
    bench.globals.reset();
    AcquiredSpectrum spectrum;
    other->control()->GetNextSpectrum(spectrum);
    EXPECT_EQ(spectrum.y_data.size(), 300000u);
}

TEST(State, ViewsInSeveralThreadsLoseNoSpectrumAndNoSetpoint) {
    SimulatorBench bench(R"({"instrument": {"spectrum_duration_ns": 2000}})");
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
    EXPECT_EQ(bench.get("Lens1") + bench.get("Lens2"), 98);
}

TEST(State, WritingTheSameValueDoesNotTouchTheDisk) {
    SimulatorBench bench;
    bench.set("Scintillator", 1);
    const int operations = bench.disk->operations;
    bench.set("Scintillator", 1);
    EXPECT_EQ(bench.disk->operations, operations);
}

TEST(State, AFailedSaveIsReportedNamingTheFile) {
    SimulatorBench bench;
    bench.disk->fault = MemoryDisk::Fault{.at = bench.disk->operations + 1, .stays = true};
    const Error fault = error_of([&] { bench.set("Lens1", 10); });
    EXPECT_NE(fault.number(), 0);
    EXPECT_NE(fault.description().find("/base/state.json"), std::string::npos) << fault.description();
    bench.disk->fault.reset();
    bench.set("Lens2", 10);
    EXPECT_EQ(SimulatorBench("", 1, bench.disk).get("Lens1"), 10);
}

TEST(State, ARunSavesItsFirstChangeAndItsEndHoweverMuchItChanges) {
    const auto disk = std::make_shared<MemoryDisk>();
    int saves = 0;
    disk->before_operation = [&](const std::string& operation) { saves += operation.find("replace") == 0; };
    {
        SimulatorBench bench(R"({"instrument": {"spectrum_duration_ns": 2000}})", 1, disk);
        bench.acquire();
        EXPECT_EQ(saves, 0);
        for (int value = 1; value < 20; ++value) {
            bench.set("Lens1", value);
            bench.acquire();
        }
        EXPECT_EQ(saves, 1);
        EXPECT_EQ(SimulatorBench("", 1, disk).get("Lens1"), 1);
    }
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(SimulatorBench("", 1, disk).get("Lens1"), 19);
}

TEST(State, TextReadsBackExactly) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> share(0, 1);
    for (int run = 0; run < 200; ++run) {
        simulation::InstrumentState state;
        state.setpoints = {{"Lens1", 100 * share(random)}, {"QuadAMU", 10 + share(random) * 3990}, {"Polarity", 1}};
        for (const std::size_t polarity : {0, 1})
            if (share(random) < 0.7)
                state.calibrations[polarity] = {{share(random), -share(random), 1e-300 * share(random), 0, -1e18 * share(random)},
                               {-3, 2147483647, 0}};
        if (share(random) < 0.5) state.slicer_hours.emplace().fill(1e4 * share(random));
        EXPECT_EQ(parse_state(simulation::state_text(state), "s"), state);
    }
}

TEST(State, MalformedContentIsRefusedNamingItemAndFile) {
    struct Case {
        std::string text, item;
    };
    const std::vector<Case> cases{
        {"", "document"},
        {"[]", "document"},
        {"nonsense", "document"},
        {"{}", "format"},
        {R"({"format": "other", "version": 1})", "format"},
        {R"({"format": "korvane simulator state", "version": 2})", "version"},
        {R"({"format": "korvane simulator state"})", "version"},
        {head + R"(, "extra": 1})", "extra"},
        {head + R"(, "setpoints": {"Lens1": 3, "Lens1": 3}})", "Lens1"},
        {head + R"(, "setpoints": {"Lens9": 3}})", "setpoints.Lens9"},
        {head + R"(, "setpoints": {"Lens1": "3"}})", "setpoints.Lens1"},
        {head + R"(, "setpoints": {"Lens1": 1e9}})", "setpoints.Lens1"},
        {head + R"(, "setpoints": {"Lens1": 1e999}})", "document"},
        {head + R"(, "setpoints": {"Polarity": 0.5}})", "setpoints.Polarity"},
        {head + R"(, "setpoints": []})", "setpoints"},
        {head + R"(, "calibrations": {"neutral": {}}})", "calibrations.neutral"},
        {head + R"(, "calibrations": {"positive": {}}})", "calibrations.positive"},
        {head + R"(, "calibrations": {"positive": {"coefficients": [1]}}})", "calibrations.positive.coefficients"},
        {head + R"(, "calibrations": {"positive": {"coefficients": [0, 2]}}})",
         "calibrations.positive.coefficients[0]"},
        {head + R"(, "calibrations": {"positive": {"coefficients": [1, null]}}})",
         "calibrations.positive.coefficients[1]"},
        {head + R"(, "calibrations": {"positive": {"coefficients": [1, 2], "settings": {"CalReserved1": 1.5}}}})",
         "calibrations.positive.settings.CalReserved1"},
        {head + R"(, "slicer_hours": [1, 2]})", "slicer_hours"},
        {head + R"(, "slicer_hours": [1,2,3,4,5,6,7,8,9,-1]})", "slicer_hours[9]"},
        {head + R"(, "slicer_hours": )" + std::string(3000, '[') + std::string(3000, ']') + "}", "document"},
        {head + "} trailing", "document"},
        {std::string("\xff\xfe") + head + "}", "document"},
        {head + "}" + std::string(simulation::most_state_bytes, ' '), "document"},
    };
    for (const Case& bad : cases) {
        const Error fault = error_of([&] { parse_state(bad.text, "C:/state.json"); });
        EXPECT_EQ(fault.number(), error_number::file_or_element) << bad.text.substr(0, 200);
        EXPECT_NE(fault.description().find("file[C:/state.json]"), std::string::npos) << fault.description();
        EXPECT_NE(fault.description().find(bad.item), std::string::npos) << fault.description();
    }
}

TEST(State, EveryTruncationOfAStateIsRefused) {
    SimulatorBench bench;
    bench.set("Lens1", 10);
    const std::string whole = *bench.disk->content("/base/state.json");
    for (std::size_t length = 0; length + 2 < whole.size(); ++length)
        EXPECT_EQ(error_of([&] { parse_state(whole.substr(0, length), "s"); }).number(), error_number::file_or_element)
            << length;
}

TEST(State, AMalformedFileStopsTheStartAndStaysAsItWas) {
    const auto disk = std::make_shared<MemoryDisk>();
    disk->put("/base/state.json", "{\"format\": ");
    const Error fault = error_of([&] { SimulatorBench("", 1, disk); });
    EXPECT_EQ(fault.number(), error_number::file_or_element);
    EXPECT_NE(fault.description().find("/base/state.json"), std::string::npos);
    EXPECT_EQ(*disk->content("/base/state.json"), "{\"format\": ");
}

TEST(State, CalibrationWithOtherTermFlagsIsNotStored) {
    SimulatorBench plain, with_terms(R"({"flight": {"use_flags": [0, 1, 0, 1]}})");
    const auto foreign = with_terms.globals->calibrations().calibration(0);
    EXPECT_EQ(error_of([&] { plain.globals->calibrations().store(0, *foreign); }).number(), error_number::invalid_call);
    EXPECT_EQ(error_of([&] { plain.globals->calibrations().calibration(2); }).number(), error_number::invalid_call);
}

}  // namespace
}  // namespace korvane
