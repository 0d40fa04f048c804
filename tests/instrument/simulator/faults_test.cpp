// The faults that a scene switches on.
#include <gtest/gtest.h>

#include <algorithm>

#include "instrument/simulator/simulator_bench.h"

namespace korvane {
namespace {

std::string faulty(const std::string& faults) {
    return R"({"instrument": {"spectrum_duration_ns": 2000}, "faults": {)" + faults + "}}";
}

std::int32_t polarity_of(const AcquiredSpectrum& spectrum, SimulatorBench& bench) {
    const auto description = bench.globals->control()->GetMetaDescription();
    for (std::int32_t i = 0; i <= description.upper_bound(); ++i)
        if (description.at(i) == "Polarity (S)") return std::get<std::int32_t>(spectrum.meta_data.at(i));
    return -1;
}

TEST(Faults, EmptySpectraHaveNoArraysForAsLongAsTold) {
    SimulatorBench bench(faulty(R"("empty_spectra": {"first": 1, "count": 2})"));
    for (const bool empty : {false, true, true, false}) {
        const auto spectrum = bench.acquire();
        EXPECT_EQ(spectrum.mass_data.is_empty(), empty);
        EXPECT_EQ(spectrum.y_data.is_empty(), empty);
        EXPECT_EQ(spectrum.meta_data.is_empty(), empty);
    }
}

TEST(Faults, LateSpectraAndThePeriodTakeTimeOnTheClock) {
    SimulatorBench bench(R"({"instrument": {"spectrum_duration_ns": 2000, "spectrum_period_ms": 100},
                             "faults": {"late_spectra": {"first": 2, "count": 1}, "late_milliseconds": 20000}})");
    for (const double expected : {0.1, 0.1, 20.1, 0.1}) {
        const double start = bench.clock->total_seconds();
        bench.acquire();
        EXPECT_NEAR(bench.clock->total_seconds() - start, expected, 1e-9);
    }
}

TEST(Faults, WrongPolarityShowsInMetadataAndIonsThenEnds) {
    SimulatorBench bench(R"({"faults": {"wrong_polarity": {"first": 0, "count": 2}}, "background": {"count": 0}})");
    SimulatorBench right(R"({"background": {"count": 0}})");
    right.set("Polarity", 1);
    const auto wrong = bench.acquire(), negative = right.acquire();
    EXPECT_EQ(polarity_of(wrong, bench), 1);
    EXPECT_TRUE(std::ranges::equal(wrong.y_data.elements(), negative.y_data.elements()));
    EXPECT_EQ(bench.get("Polarity"), 0);
    EXPECT_EQ(polarity_of(bench.acquire(), bench), 1);
    EXPECT_EQ(polarity_of(bench.acquire(), bench), 0);
}

TEST(Faults, NotReadyEndsAfterThePollsOrNever) {
    const std::string path = "ACTUAL.NDR[NRDYSTATE]";
    SimulatorBench some(faulty(R"("not_ready_polls": 3)")), never(faulty(R"("not_ready_polls": -1)"));
    for (int poll = 0; poll < 6; ++poll) {
        EXPECT_EQ(std::get<double>(some.globals->actual_value(path, "")), poll < 3 ? -1 : 0);
        EXPECT_EQ(never.globals->control()->read_register(path), -1);
    }
}

TEST(Faults, RunStateBecomesPreRunAfterThePolls) {
    SimulatorBench bench(faulty(R"("run_state_polls": 2)"));
    for (const double state : {2.0, 2.0, 1.0, 1.0})
        EXPECT_EQ(bench.globals->control()->read_register("REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"), state);
}

TEST(Faults, UnknownRegistersAndItemsAreNamed) {
    SimulatorBench bench;
    for (const std::string name : {"ACTUAL.NDR[X]", "SlicerPos[0].Hours", "SlicerPos[11].Hours", "coefa", "Other"}) {
        const Error fault = error_of([&] {
            if (name.starts_with("ACTUAL"))
                bench.globals->actual_value(name, "");
            else
                bench.globals->dictionary_item(name);
        });
        EXPECT_EQ(fault.number(), error_number::invalid_call);
        EXPECT_NE(fault.description().find("[" + name + "]"), std::string::npos) << fault.description();
    }
}

TEST(Faults, ASetpointThatNeverArrivesReadsBackButActsAndReportsTheOldValue) {
    SimulatorBench bench(faulty(R"("setpoints": [{"setpoint": "Lens1", "never": true}])"));
    bench.set("Lens1", 50);
    EXPECT_EQ(bench.get("Lens1"), 50);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(bench.metadata("Lens 1"), 36);
}

TEST(Faults, ASetpointArrivesAfterItsSpectraEveryTime) {
    SimulatorBench bench(faulty(R"("setpoints": [{"setpoint": "Polarity", "after_spectra": 3}])"));
    for (const double target : {1.0, 0.0}) {
        bench.set("Polarity", target);
        for (const bool arrived : {false, false, true, true})
            EXPECT_EQ(bench.metadata("Polarity"), arrived ? target : 1 - target);
    }
}

TEST(Faults, SpentCalibrantLeavesTheBackground) {
    SimulatorBench full(R"({"background": {"count": 0}})");
    SimulatorBench spent(R"({"background": {"count": 0}, "sample": {"calibrant_factor": 0}})");
    EXPECT_GT(std::ranges::max(full.acquire().y_data.elements()), 50000);
    EXPECT_LT(std::ranges::max(spent.acquire().y_data.elements()), 2000);
}

TEST(Faults, RetentionTimeAdvancesByWhatTheTransientsTake) {
    SimulatorBench bench(faulty(""));
    bench.acquire();
    EXPECT_NEAR(bench.acquire().retention_time, 5000.0 / 6200 / 60, 1e-12);
    bench.set("NumTransients2GHz", 620);
    bench.acquire();
    EXPECT_NEAR(bench.acquire().retention_time, (10000.0 / 6200 + 0.1) / 60, 1e-12);
}

TEST(Logbook, AppendsOneLineAnEntry) {
    SimulatorBench bench;
    for (const char* message : {"first", "second"})
        bench.layer->create_logbook_entry()->write(32, message, 5, 0, 0, "");
    EXPECT_EQ(*bench.disk->content(join_path(join_path("/base", "Logfiles"), "Logbook.txt")),
              "20261121 100000 32 5 0 0 first\n20261121 100000 32 5 0 0 second\n");
    bench.disk->fault = MemoryDisk::Fault{.at = bench.disk->operations + 1};
    const Error fault = error_of([&] { bench.layer->create_logbook_entry()->write(32, "x", 5, 0, 0, ""); });
    EXPECT_NE(fault.description().find("Logbook.txt"), std::string::npos) << fault.description();
}

}  // namespace
}  // namespace korvane
