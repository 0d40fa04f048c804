// What the straight model leaves out: the choice of the log, and errors outside the probes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::StartsWith;
using Lines = std::vector<std::string>;

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

}  // namespace
}  // namespace korvane
