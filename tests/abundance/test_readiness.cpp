// Readiness of the instrument, and a peak's abundance over several spectra.
#include <gtest/gtest.h>

#include "spectrum/parser_state.h"
#include "support/raised.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

TEST(Readiness, OnlyARoundedNegativeStateIsNotReadyWhateverTheRunState) {
    // The state and its 16-bit integer.
    const std::pair<double, std::int32_t> cases[] = {{0, 0},   {1, 1},      {-0.4, 0},        {-0.5, 0},     {-0.6, -1},
                                                     {-1, -1}, {-1.25, -1}, {-32768, -32768}, {32767, 32767}};
    for (const bool run_state_also : {false, true}) {
        ParserWorld world;
        world.test.preference("WaitDialogHandlesRunStateAlso", run_state_also ? "Yes" : "No");
        SpectrumParser::Impl state(world.platform());
        auto& registers = world.instrument().registers;
        for (const auto& [not_ready, rounded] : cases)
            for (const std::int32_t run_state : {-5, 0, 3}) {
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
        EXPECT_EQ(raised([&] { state.CheckInstrumentReadyState(); }), "6|Korvane|Overflow: [32767.5]");
    }
}

TEST(Readiness, SkippingAsksTheInstrumentNothing) {
    ParserWorld world;
    world.test.preference("WaitForReady_SkipAll", "Yes");
    SpectrumParser::Impl state(world.platform());
    world.instrument().registers.clear();
    EXPECT_TRUE(state.CheckInstrumentReadyState());
}

TEST(AveragedAbundance, MeanOfFreshSpectraIsRoundedOnceHalvesToEven) {
    ParserWorld world;
    SpectrumParser::Impl state(world.platform());
    const auto mean = [&](int spectra) { return state.GetAveragedPeakAbundance(world.parser, 900, spectra); };
    EXPECT_EQ(raised([&] { mean(0); }), "11|Korvane|Division by zero");
    EXPECT_EQ(mean(-2), 0);
    EXPECT_EQ(world.instrument().spectra, 0);
    world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
        world.fill(spectrum);
        world.set_peak(900, 1000.4 + 0.1 * number);  // 1000.5, 1000.6, ...
    };
    EXPECT_EQ(mean(1), 1000);
    EXPECT_EQ(mean(3), 1001);
    EXPECT_EQ(world.instrument().spectra, 4);
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
