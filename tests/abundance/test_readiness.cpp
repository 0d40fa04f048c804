// Readiness of the instrument, and the scintillator around the measurements of a search.
#include <gtest/gtest.h>

#include "spectrum/parser_state.h"
#include "support/raised.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

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
