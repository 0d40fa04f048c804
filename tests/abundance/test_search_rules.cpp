// What the transcripts of whole searches leave out: readiness, the scintillator, the choice of the log, errors outside
// the probes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "abundance/search_world.h"
#include "spectrum/parser_state.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::StartsWith;

TEST(SearchRules, ErrorsOutsideTheProbesAreRaisedAndLoggedWhereTheLogIsChosen) {
    const std::string name = "BinaryAdjustAbundanceDownUsingThisSetpoint";
    for (const char* chosen : {"3000", "True", "3000 "}) {
        SearchWorld test;
        test.test.preference("BinarySearchLoggingEnabled", chosen);
        test.test.limit("Calibration", "AIC_SearchSpeedUpFactor", "0");
        EXPECT_EQ(raised([&] { test.adjust(251000); }), "11|Korvane|Division by zero");
        EXPECT_TRUE(test.journal_of("write").empty());
        const std::string line = "Error[11] in " + name + "(): Division by zero";
        EXPECT_EQ(test.traced_by(name), Lines{line});
        EXPECT_EQ(test.log().empty() ? "" : test.log().back(), chosen == std::string("3000") ? line : "");
    }
    SearchWorld test(true);
    EXPECT_EQ(raised([&] { test.adjust(251000, 0, 1e39, 1); }), "6|Korvane|Overflow: [5E+38]");
    // The fast search sets the transients through the tune globals, which skip a value beyond the limits.
    test.instrument().journal.clear();
    test.instrument().setpoint(127) = {10000, 2000, 1e6, 1, 0.01, 4, "NumTrans"};
    test.adjust(500000, 0, 100, 30);
    EXPECT_EQ(test.journal_of("write 127"), Lines{"write 127 = 10000 (double)"});
    EXPECT_TRUE(std::isfinite(test.adjust(251000, 0, 100, std::nan("")))) << "went on for ever";
    test.test.preference("BinarySearchLoggingEnabled", "3000");
    test.parser = SpectrumParser(test.platform());  // lets go of the logs
    std::filesystem::remove_all(test.test.base() / "Logfiles");
    EXPECT_NO_THROW(SpectrumParser(test.platform()).BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 251000));
    EXPECT_THAT(test.traced_by("WriteLineToBinarySearchLogFile"),
                Contains(StartsWith("error[76] in WriteLineToBinarySearchLogFile(): ")));
}

TEST(Readiness, OnlyARoundedNegativeStateIsNotReadyWhateverTheRunState) {
    for (const bool run_state_also : {false, true}) {
        ParserWorld world;
        world.test.preference("WaitDialogHandlesRunStateAlso", run_state_also ? "Yes" : "No");
        SpectrumParser::Impl state(world.platform());
        auto& registers = world.instrument().registers;
        for (const auto& [not_ready, rounded] : {std::pair{0.0, 0}, {-0.5, 0}, {-0.6, -1}, {-32768, -32768}, {1, 1}})
            for (const std::int32_t run_state : {-5, 3}) {
                world.test.trace().lines.clear();
                registers["ACTUAL.NDR[NRDYSTATE]"] = not_ready;
                registers["REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"] = run_state;
                EXPECT_EQ(state.CheckInstrumentReadyState(), rounded >= 0) << not_ready << " " << run_state;
                Lines traced{text_of("NrdyState is ", not_ready)};
                if (run_state_also)
                    traced = rounded >= 0 ? Lines{}
                                          : Lines{text_of("Waiting: NReady[", rounded, "], RunState[", run_state, "]")};
                EXPECT_EQ(world.traced_by("CheckInstrumentReadyState"), traced);
            }
        registers["ACTUAL.NDR[NRDYSTATE]"] = 32767.5;
        EXPECT_EQ(raised([&] { state.CheckInstrumentReadyState(); }),
                  "6|Korvane|Overflow: [32767.5] (register[ACTUAL.NDR[NRDYSTATE]])");
        world.test.preference("WaitForReady_SkipAll", "Yes");
        registers.clear();
        EXPECT_TRUE(SpectrumParser::Impl(world.platform()).CheckInstrumentReadyState()) << "the instrument was asked";
    }
}

TEST(SingleMassAbundance, ScintillatorIsSetThroughTheTuneGlobalsAndAwaited) {
    ParserWorld world;
    SpectrumParser::Impl state(world.platform());
    world.instrument().setpoint(69).value = 5;
    EXPECT_EQ(state.GetPeakAbForThisMass(world.parser, 900), 5000);
    EXPECT_EQ(world.instrument().journal,
              (Lines{"write 69 = 0 (double)", "spectrum 1", "spectrum 2", "write 69 = 5 (double)", "spectrum 3"}));
    world.instrument().journal.clear();
    world.instrument().setpoint(69).value = 0;
    state.GetPeakAbForThisMass(world.parser, 900);
    EXPECT_EQ(world.instrument().journal, Lines{"spectrum 4"}) << "an equal value is not written back";
}

}  // namespace
}  // namespace korvane
