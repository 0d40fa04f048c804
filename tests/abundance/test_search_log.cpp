// The binary-search log: whole texts of a few searches, and when it is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::StartsWith;
using Lines = std::vector<std::string>;

struct LoggedSearch : SearchWorld {
    explicit LoggedSearch(bool fast_search = false, const char* preference = "3000") : SearchWorld(fast_search) {
        test.preference("BinarySearchLoggingEnabled", preference);
    }
    Lines log() const { return test.log_lines("BinarySearch_"); }
};

// Down to the tolerance, then down to the resolution.
constexpr std::string_view two_searches = R"(
===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0
BinaryAdjustAbundanceDownUsingThisSetpoint(IdxOfSetpointToAdjust[50], mz[900], AbTarget[25100], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[-123456789], StartingMaxSPValue[-123456789], SPResolution[-123456789]
Original Setpoint value is 70
new PreviousVoltage[0]; new Setpoint_Middle = (100 + 0) / 2 = 50
AbTarget[25100], MiddleAb[50000], PreviousVoltage[0], Setpoint_Middle[50], HighVoltage[100], LowVoltage[0] ==> Moving High_Boundary down
new PreviousVoltage[50]; new Setpoint_Middle = (50 + 0) / 2 = 25
We have found a value [v,ab]=[25, 25000] within 20k Ab of target; exiting
setting setpoint[127] to [10000]
BinaryAdjustAbundanceDownUsingThisSetpoint(IdxOfSetpointToAdjust[50], mz[900], AbTarget[26000], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[20], StartingMaxSPValue[36], SPResolution[3]
Original Setpoint value is 25
new PreviousVoltage[20]; new Setpoint_Middle = (36 + 20) / 2 = 28
AbTarget[26000], MiddleAb[28000], PreviousVoltage[20], Setpoint_Middle[28], HighVoltage[36], LowVoltage[20] ==> Moving High_Boundary down
new PreviousVoltage[28]; new Setpoint_Middle = (28 + 20) / 2 = 24
AbTarget[26000], MiddleAb[24000], PreviousVoltage[28], Setpoint_Middle[24], HighVoltage[28], LowVoltage[20] ==> Moving Low_Boundary up
new PreviousVoltage[24]; new Setpoint_Middle = (28 + 24) / 2 = 26
We have reached the limits of resolution on this setpoint; setting final value[24]; exiting
setting setpoint[50] to [24]
setting setpoint[127] to [10000]
)";

TEST(SearchLog, HasEveryStepOfTwoSearchesUnderOneHeader) {
    LoggedSearch test;
    EXPECT_EQ(test.adjust(251000), 25);
    EXPECT_EQ(test.journal_of("write "), (Lines{"write 127 = 1000 (double)", "write 50 = 50 (double)",
                                                "write 50 = 25 (double)", "write 127 = 10000 (double)"}));
    test.test.clock->advance(60);
    EXPECT_EQ(test.adjust(260000, 20, 36, 3), 24);
    EXPECT_EQ(joined(test.log()), two_searches);
}

constexpr std::string_view fast_search = R"(
===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0
BinaryAdjustAbundanceDownUsingThisSetpoint_Fast(IdxOfSetpointToAdjust[50], mz[900], AbTarget[25100], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[0], StartingMaxSPValue[100], SPResolution[20]
Original Setpoint value is 70
new PreviousVoltage[0]; new Setpoint_Middle = (100 + 0) / 2 = 50
Making direct call to FW...
Direct call returned [0]
Current QuadAMU value in FW (baseline): 50
Current QuadAMU value in FW after GetNewSpectrum(): 50
1st MiddleAb = 0
Current QuadAMU value in FW after GetNewSpectrum(): 50
1st MiddleAb = 50000
Current QuadAMU value in FW after GetPeakInfos(): 50
resampled MiddleAb = 30000
Abs(AbTarget[25100] - MiddleAb[30000) / AbTarget[25100] = 0.1952191235059761
Current QuadAMU value in FW after GetPeakInfos(): 50
AbTarget[25100], MiddleAb[30000], PreviousVoltage[0], Setpoint_Middle[50], HighVoltage[100], LowVoltage[0] ==> Moving High_Boundary down
new PreviousVoltage[50]; new Setpoint_Middle = (50 + 0) / 2 = 25
Making direct call to FW...
Direct call returned [0]
Current QuadAMU value in FW (baseline): 25
Current QuadAMU value in FW after GetNewSpectrum(): 25
1st MiddleAb = 30000
Current QuadAMU value in FW after GetNewSpectrum(): 25
1st MiddleAb = 15000
Current QuadAMU value in FW after GetPeakInfos(): 25
Better Ab found: New MaxSPValue, MaxAb = [25, 15000]
AbTarget[25100], MiddleAb[15000], PreviousVoltage[50], Setpoint_Middle[25], HighVoltage[50], LowVoltage[0] ==> Moving Low_Boundary up
new PreviousVoltage[25]; new Setpoint_Middle = (50 + 25) / 2 = 37.5
We have reached the limits of resolution on this setpoint; setting final value[25]; exiting
setting setpoint[50] to [25]
setting setpoint[127] to [10000]
)";

TEST(SearchLog, HasEveryStepOfAFastSearch) {
    LoggedSearch test(true);
    test.curve = [&](double value) { return value * (test.instrument().spectra < 4 ? 10000 : 6000); };
    EXPECT_EQ(test.adjust(251000, 0, 100, 20), 25);
    EXPECT_EQ(joined(test.log()), fast_search);
    test.adjust(300000);
    EXPECT_THAT(test.log(),
                Contains("We have found a value [v,ab]=[50, 30000] within close range of Ab target; exiting"));
}

TEST(SearchLog, IsWrittenForTheExactSwitchValueOnlyAndMayFail) {
    for (const char* other : {"True", "Yes", "3000 ", "1"}) {
        LoggedSearch test(false, other);
        test.adjust(251000);
        EXPECT_TRUE(test.log().empty()) << other;
        EXPECT_EQ(test.traced_by("BinaryAdjustAbundanceDownUsingThisSetpoint").at(1), "Original Setpoint value is 70");
    }
    LoggedSearch test;
    std::filesystem::remove_all(test.test.base() / "Logfiles");
    EXPECT_EQ(test.adjust(251000), 25);
    EXPECT_THAT(test.traced_by("WriteLineToBinarySearchLogFile"),
                Contains(StartsWith("error[53] in WriteLineToBinarySearchLogFile(): ")));
}

}  // namespace
}  // namespace korvane
