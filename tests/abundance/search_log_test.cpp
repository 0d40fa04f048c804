// Whole binary-search logs of a few searches, and the conditions under which lines are written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

struct LoggedSearch : SearchWorld {
    LoggedSearch() { world.test.preference("BinarySearchLoggingEnabled", "3000"); }
    Lines log() const { return world.test.log_lines("BinarySearch_"); }
};

constexpr std::string_view down_to_tolerance = R"(
===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0
BinaryAdjustAbundanceDownUsingThisSetpoint(IdxOfSetpointToAdjust[50], mz[900], AbTarget[25100], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[-123456789], StartingMaxSPValue[-123456789], SPResolution[-123456789]
Original Setpoint value is 70
new PreviousVoltage[0]; new Setpoint_Middle = (100 + 0) / 2 = 50
AbTarget[25100], MiddleAb[50000], PreviousVoltage[0], Setpoint_Middle[50], HighVoltage[100], LowVoltage[0] ==> Moving High_Boundary down
new PreviousVoltage[50]; new Setpoint_Middle = (50 + 0) / 2 = 25
We have found a value [v,ab]=[25, 25000] within 20k Ab of target; exiting
setting setpoint[127] to [10000]
)";

constexpr std::string_view down_to_resolution = R"(
===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0
BinaryAdjustAbundanceDownUsingThisSetpoint(IdxOfSetpointToAdjust[50], mz[900], AbTarget[26000], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[20], StartingMaxSPValue[36], SPResolution[3]
Original Setpoint value is 70
new PreviousVoltage[20]; new Setpoint_Middle = (36 + 20) / 2 = 28
AbTarget[26000], MiddleAb[28000], PreviousVoltage[20], Setpoint_Middle[28], HighVoltage[36], LowVoltage[20] ==> Moving High_Boundary down
new PreviousVoltage[28]; new Setpoint_Middle = (28 + 20) / 2 = 24
AbTarget[26000], MiddleAb[24000], PreviousVoltage[28], Setpoint_Middle[24], HighVoltage[28], LowVoltage[20] ==> Moving Low_Boundary up
new PreviousVoltage[24]; new Setpoint_Middle = (28 + 24) / 2 = 26
We have reached the limits of resolution on this setpoint; setting final value[24]; exiting
setting setpoint[50] to [24]
setting setpoint[127] to [10000]
)";

constexpr std::string_view fast_search = R"(
===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0
BinaryAdjustAbundanceDownUsingThisSetpoint_Fast(IdxOfSetpointToAdjust[50], mz[900], AbTarget[25100], dmz[30], bLowerThisSPToReduceAbundance[True], StartingMinSPValue[-123456789], StartingMaxSPValue[-123456789], SPResolution[-123456789]
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
resampled MiddleAb = 50000
Abs(AbTarget[25100] - MiddleAb[50000) / AbTarget[25100] = 0.9920318725099602
Current QuadAMU value in FW after GetPeakInfos(): 50
resampled MiddleAb = 50000
Abs(AbTarget[25100] - MiddleAb[50000) / AbTarget[25100] = 0.9920318725099602
Current QuadAMU value in FW after GetPeakInfos(): 50
resampled MiddleAb = 50000
Abs(AbTarget[25100] - MiddleAb[50000) / AbTarget[25100] = 0.9920318725099602
Current QuadAMU value in FW after GetPeakInfos(): 50
resampled MiddleAb = 50000
Abs(AbTarget[25100] - MiddleAb[50000) / AbTarget[25100] = 0.9920318725099602
Current QuadAMU value in FW after GetPeakInfos(): 50
AbTarget[25100], MiddleAb[50000], PreviousVoltage[0], Setpoint_Middle[50], HighVoltage[100], LowVoltage[0] ==> Moving High_Boundary down
new PreviousVoltage[50]; new Setpoint_Middle = (50 + 0) / 2 = 25
Making direct call to FW...
Direct call returned [0]
Current QuadAMU value in FW (baseline): 25
Current QuadAMU value in FW after GetNewSpectrum(): 25
1st MiddleAb = 50000
Current QuadAMU value in FW after GetNewSpectrum(): 25
1st MiddleAb = 25000
Current QuadAMU value in FW after GetPeakInfos(): 25
We have found a value [v,ab]=[25, 25000] within close range of Ab target; exiting
setting setpoint[127] to [10000]
)";

TEST(SearchLog, DownToTolerance) {
    LoggedSearch test;
    EXPECT_EQ(test.adjust(251000), 25);
    EXPECT_EQ(joined(test.log()), down_to_tolerance);
    EXPECT_EQ(test.journal_of("write "), (Lines{"write 127 = 1000 (double)", "write 50 = 50 (double)",
                                                "write 50 = 25 (double)", "write 127 = 10000 (double)"}));
}

TEST(SearchLog, DownToResolution) {
    LoggedSearch test;
    test.world.test.limit("Calibration", "BinarySearchAbTolerance", "0");
    EXPECT_EQ(test.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 260000, 30, true, 20, 36, 3), 24);
    EXPECT_EQ(joined(test.log()), down_to_resolution);
}

TEST(SearchLog, Fast) {
    LoggedSearch test;
    test.run_fast();
    EXPECT_EQ(test.adjust(251000), 25);
    EXPECT_EQ(joined(test.log()), fast_search);
}

TEST(SearchLog, IsWrittenForTheExactSwitchValueOnly) {
    for (const char* other : {"True", "Yes", "3000 ", "1"}) {
        LoggedSearch test;
        test.world.test.preference("BinarySearchLoggingEnabled", other);
        test.adjust(251000);
        EXPECT_TRUE(test.log().empty()) << other;
        EXPECT_THAT(test.world.test.trace().lines,
                    testing::Contains("BinaryAdjustAbundanceDownUsingThisSetpoint: Original Setpoint value is 70"));
    }
}

TEST(SearchLog, StaysOpenFromOneSearchToTheNext) {
    LoggedSearch test;
    test.adjust(251000);
    const std::size_t first = test.log().size();
    test.world.test.clock->advance(60);
    test.adjust(251000);
    EXPECT_EQ(test.log().size(), 2 * first - 1) << "one header";
}

TEST(SearchLog, MissingFolderDoesNotEndTheSearch) {
    LoggedSearch test;
    std::filesystem::remove_all(test.world.test.base() / "Logfiles");
    EXPECT_EQ(test.adjust(251000), 25);
    EXPECT_THAT(test.world.test.trace().lines,
                testing::Contains(testing::StartsWith(
                    "WriteLineToBinarySearchLogFile: error[53] in WriteLineToBinarySearchLogFile(): ")));
}

}  // namespace
}  // namespace korvane
