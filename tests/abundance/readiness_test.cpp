#include "abundance/readiness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "abundance/averaged_abundance.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

struct ReadinessCase {
    double state;
    bool ready;
};

TEST(Readiness, OnlyARoundedNegativeStateIsNotReadyWhateverTheRunState) {
    const ReadinessCase cases[] = {{0, true},     {1, true},   {-0.4, true},    {-0.5, true},
                                   {-0.6, false}, {-1, false}, {-32768, false}, {32767, true}};
    for (const char* run_state_also : {"No", "Yes"}) {
        SpectrumWorld world;
        world.test.preference("WaitDialogHandlesRunStateAlso", run_state_also);
        Session session(world.platform());
        Readiness readiness(session);
        for (const ReadinessCase& one : cases)
            for (const double run_state : {-5.0, 0.0, 3.0}) {
                world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = one.state;
                world.instrument().registers["REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"] = run_state;
                EXPECT_EQ(readiness.CheckInstrumentReadyState(), one.ready) << one.state << " " << run_state;
            }
        world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = 32767.5;
        EXPECT_EQ(error_of([&] { readiness.CheckInstrumentReadyState(); }).number(), error_number::overflow);
    }
}

TEST(Readiness, EachBranchTracesItsOwnLine) {
    SpectrumWorld world;
    world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = -1.25;
    EXPECT_FALSE([&] {
        Session session(world.platform());
        return Readiness(session).CheckInstrumentReadyState();
    }());
    world.test.preference("WaitDialogHandlesRunStateAlso", "Yes");
    Session session(world.platform());
    Readiness(session).CheckInstrumentReadyState();
    EXPECT_THAT(world.test.trace().lines,
                testing::IsSupersetOf({"CheckInstrumentReadyState: NrdyState is -1.25",
                                       "CheckInstrumentReadyState: Waiting: NReady[-1], RunState[1]"}));
}

TEST(Readiness, SkippingAsksTheInstrumentNothing) {
    SpectrumWorld world;
    world.test.preference("WaitForReady_SkipAll", "Yes");
    Session session(world.platform());
    const int calls = world.instrument().calls;
    world.instrument().registers.clear();
    EXPECT_TRUE(Readiness(session).CheckInstrumentReadyState());
    EXPECT_EQ(world.instrument().calls, calls);
}

struct Averaging {
    SpectrumWorld world;
    Session session{world.platform()};
    SpectrumAcquisition acquisition{session};
    MassTimeWindows windows{session.trace};
    PeakSearch search{session, windows};
    CalibrantPeaks calibrants{session, acquisition, windows, search};
    AveragedAbundance averaged{session, calibrants};
};

TEST(AveragedAbundance, MeanOfFreshSpectraIsRoundedOnceHalvesToEven) {
    Averaging test;
    test.world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
        test.world.fill(spectrum);
        test.world.set_peak(900, 1000.4 + 0.1 * number);  // 1000.5, 1000.6, ...
    };
    EXPECT_EQ(test.averaged.GetAveragedPeakAbundance(900, 1), 1000);
    EXPECT_EQ(test.averaged.GetAveragedPeakAbundance(900, 3), 1001);
    EXPECT_EQ(test.world.instrument().spectra, 4);
}

TEST(AveragedAbundance, NoSpectraIsADivisionByZeroAndFewerAreNothing) {
    Averaging test;
    EXPECT_EQ(error_of([&] { test.averaged.GetAveragedPeakAbundance(900, 0); }).number(),
              error_number::division_by_zero);
    EXPECT_EQ(test.averaged.GetAveragedPeakAbundance(900, -2), 0);
    EXPECT_EQ(test.world.instrument().spectra, 0);
}

TEST(SingleMassAbundance, ScintillatorIsSetThroughTheTuneGlobalsAndAwaited) {
    Averaging test;
    test.world.instrument().setpoint(69).value = 5;
    EXPECT_EQ(test.calibrants.GetPeakAbForThisMass(900), 5000);
    using Lines = std::vector<std::string>;
    EXPECT_EQ(test.world.instrument().journal,
              (Lines{"write 69 = 0 (double)", "spectrum 1", "spectrum 2", "write 69 = 5 (double)", "spectrum 3"}));
    test.world.instrument().journal.clear();
    test.world.instrument().setpoint(69).value = 0;
    test.calibrants.GetPeakAbForThisMass(900);
    EXPECT_EQ(test.world.instrument().journal, Lines{"spectrum 4"}) << "an equal value is not written back";
}

}  // namespace
}  // namespace korvane
