#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "korvane/spectrum_parser.h"
#include "platform/automation_arithmetic.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

struct Attributes {
    /// The peak of `mass` shows from the n-th spectrum on only.
    void peak_from_spectrum(double mass, int first) {
        world.set_peak(mass, 0);
        world.instrument().acquire = [this, mass, first](AcquiredSpectrum& spectrum, int number) {
            world.fill(spectrum);
            if (number == first) world.set_peak(mass, 4321);
        };
    }

    SpectrumWorld world;
    SpectrumParser parser{world.platform()};
};

TEST(PeakAttributes, WindowReachesTheMassWindowToBothSides) {
    Attributes test;
    test.parser.GetPeakAttributes(900);
    const double start = 1000 * std::sqrt(900 - 0.2), end = 1000 * std::sqrt(900 + 0.2);
    EXPECT_THAT(test.world.peaks.journal, Contains("start " + number_text(start)));
    EXPECT_THAT(test.world.peaks.journal, Contains("end " + number_text(end)));
    EXPECT_THAT(test.world.test.trace().lines, Contains("GetPeakAttributes: PeakListWindowStart[" + number_text(start) +
                                                        "], PeakListWindowEnd[" + number_text(end) + "]"));
}

TEST(PeakAttributes, MostAbundantPeakComesInTheUnitsAskedFor) {
    Attributes test;
    test.world.set_peak(901, 8000);
    EXPECT_NEAR(test.parser.GetPeakAttributes(900, 5).pkCentroid, 901, 1e-9);
    EXPECT_NEAR(test.parser.GetPeakAttributes(900, 5, enumPeakInfoUnits::ns).pkCentroid, SpectrumWorld::time_ns(901),
                1e-9);
    const auto list = test.parser.GetPeakListOfOnlyThisOneMass(900, 5);
    EXPECT_EQ(list->count(), 2);
    EXPECT_NEAR(list->GetPeakAttributeInfo(0, true).pkCentroid, 900, 1e-9) << "the list itself is not ordered";
}

TEST(PeakAttributes, EmptyWindowIsSearchedOnceMoreInAFreshSpectrum) {
    Attributes test;
    test.peak_from_spectrum(900, 2);
    EXPECT_EQ(test.parser.GetPeakAttributes(900).pkHeight, 4321);
    EXPECT_EQ(test.world.instrument().spectra, 2);
    Attributes later;
    later.peak_from_spectrum(900, 3);
    const Error error = error_of([&] { later.parser.GetPeakListOfOnlyThisOneMass(900); });
    EXPECT_EQ(error.number(), -1);
    EXPECT_EQ(error.source(), "GetPeakAttribute()");
    EXPECT_EQ(error.description(), "No peaks returned by peakfinder");
    EXPECT_EQ(later.world.instrument().spectra, 2);
}

TEST(PeakAttributes, NoPeakIsAnErrorAnEmptyRecordOrAZero) {
    Attributes test;
    test.world.set_peak(900, 0);
    EXPECT_EQ(error_of([&] { test.parser.GetPeakAttributes(900); }).description(), "No peaks returned by peakfinder");
    EXPECT_EQ(test.parser.GetPeakAttributes(900, 0.2, enumPeakInfoUnits::amu, false), PeakInfo{});
    EXPECT_EQ(error_of([&] { test.parser.GetPeakAttribute(PeakCalcType::Height, 900); }).number(), -1);
    test.world.test.trace().lines.clear();
    EXPECT_EQ(test.parser.GetPeakAttribute(PeakCalcType::Height, 900, 0.2, true), 0);
    EXPECT_THAT(
        test.world.test.trace().lines,
        testing::IsSupersetOf({"GetPeakAttribute: error[-1] in GetPeakAttribute(): No peaks returned by peakfinder",
                               "GetPeakAttribute: no peaks returned, returning 0 height"}));
}

TEST(PeakAttributes, EachCalculationReturnsItsOwnValue) {
    Attributes test;
    const auto value = [&](int type) { return test.parser.GetPeakAttribute(static_cast<PeakCalcType>(type), 900); };
    EXPECT_EQ(value(1), 30000);
    EXPECT_NEAR(value(2), 900, 1e-9);
    EXPECT_EQ(value(3), 9000);
    EXPECT_EQ(value(4), 15);
    EXPECT_EQ(value(5), 5000);
    EXPECT_EQ(value(6), 10000);
    const int spectra = test.world.instrument().spectra;
    for (const int type : {0, 7, -1}) EXPECT_EQ(value(type), 0);
    EXPECT_EQ(test.world.instrument().spectra, spectra) << "an unknown calculation measured";
}

TEST(PeakList, MaxPeaksKeepsTheMostAbundantOnes) {
    Attributes test;
    test.world.set_peak(400, 9000);
    const auto list = test.parser.GetPeakList(5000, 60000, 2);
    ASSERT_EQ(list->count(), 2);
    EXPECT_EQ(list->GetPeakAttributeInfo(1, true).pkHeight, 9000);
    EXPECT_EQ(test.parser.GetPeakList(5000, 60000)->count(), 5);
    EXPECT_EQ(test.parser.GetPeakList(5000, 60000, -1)->count(), 5);
}

TEST(PeakList, EveryStepIsTraced) {
    Attributes test;
    test.world.test.trace().lines.clear();
    test.parser.GetPeakList(9900, 10100);
    EXPECT_EQ(
        test.world.test.trace().lines,
        (std::vector<std::string>{
            "> GetPeakList", "GetPeakList: maxpeaks: 0", "GetPeakList: Getting spectrum data",
            "GetPeakList: Elements in lYValuesToSearch[] = 5500; copying spectrum data to local copy",
            "GetPeakList: lYValuesToSearch count 5500", "GetPeakList: dSpectrumStartTimeInNS = 5003",
            "GetPeakList: GetPeakList.GettingPeakListInTimeWindow[startTimeinNS, endTimeinNS, "
            "dSpectrumStartTimeInNS] = [9900, 10100, 5003]",
            "GetPeakList: Before PeakFinder Call", "GetPeakList: XStartNS is : 9900", "GetPeakList: EndNS is : 10100",
            "GetPeakList: starttime is : 5003", "GetPeakList: PeakFinder Call succeeded",
            "GetPeakList: # Peak Found: 1", "GetPeakList: Peak[0].pkApexX,.pkHeight: [10000, 5000]", "< GetPeakList"}));
}

TEST(PeakList, FailureTracesTheShortLineAndRaises) {
    Attributes test;
    test.world.instrument().has_control = false;
    EXPECT_EQ(error_of([&] { test.parser.GetPeakList(0, 1); }).number(), error_number::object_not_set);
    EXPECT_THAT(test.world.test.trace().lines, Contains("GetPeakList: GetPeakList.Error[91]"));
    Attributes empty;
    empty.world.instrument().acquire = nullptr;
    EXPECT_EQ(error_of([&] { empty.parser.GetPeakList(0, 1); }).number(), error_number::type_mismatch);
    Attributes no_list;
    no_list.world.peaks.returns_no_list = true;
    EXPECT_EQ(error_of([&] { no_list.parser.GetPeakList(0, 1); }).number(), error_number::object_not_set);
}

}  // namespace
}  // namespace korvane
