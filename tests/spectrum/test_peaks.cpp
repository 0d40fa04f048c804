// The peaks of one mass or of one stretch of time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::StartsWith;

constexpr const char* no_peaks = "-1|GetPeakAttribute()|No peaks returned by peakfinder";

constexpr std::string_view one_mass_transcript = R"(
> GetPeakAttribute
  > GetPeakAttributes
    PeakListWindowStart[29996.666481460903], PeakListWindowEnd[30003.33314816872]
    > GetPeakList
      maxpeaks: 0
      Getting spectrum data
      Elements in lYValuesToSearch[] = 5500; copying spectrum data to local copy
      lYValuesToSearch count 5500
      dSpectrumStartTimeInNS = 5003
      GetPeakList.GettingPeakListInTimeWindow[startTimeinNS, endTimeinNS, dSpectrumStartTimeInNS] = [29996.666481460903, 30003.33314816872, 5003]
      Before PeakFinder Call
      XStartNS is : 29996.666481460903
      EndNS is : 30003.33314816872
      starttime is : 5003
      PeakFinder Call succeeded
      # Peak Found: 1
      Peak[0].pkApexX,.pkHeight: [30000, 5000]
)";

TEST(PeakAttributes, EachCalculationReturnsItsOwnValueOfThePeakInTheWindow) {
    ParserWorld test;
    const auto value = [&](int type) { return test.parser.GetPeakAttribute(static_cast<PeakCalcType>(type), 900); };
    EXPECT_EQ(value(1), 30000);
    EXPECT_EQ(test.transcript(), one_mass_transcript);
    EXPECT_NEAR(value(2), 900, 1e-9);
    EXPECT_NEAR(value(3), 1000, 1e-6);
    EXPECT_NEAR(value(4), 0.9, 1e-9);
    EXPECT_EQ(value(5), 5000);
    EXPECT_EQ(value(6), 10000);
    const int spectra = test.instrument().spectra;
    for (const int type : {0, 7, -1}) EXPECT_EQ(value(type), 0);
    EXPECT_EQ(test.instrument().spectra, spectra) << "an unknown calculation measured";
}

TEST(PeakAttributes, MostAbundantPeakComesInTheUnitsAskedFor) {
    ParserWorld test;
    test.set_peak(901, 8000);
    EXPECT_NEAR(test.parser.GetPeakAttributes(900, 5).pkCentroid, 901, 1e-9);
    EXPECT_NEAR(test.parser.GetPeakAttributes(900, 5, enumPeakInfoUnits::ns).pkCentroid, SpectrumWorld::time_ns(901),
                1e-9);
    EXPECT_EQ(test.parser.GetPeakListOfOnlyThisOneMass(900, 5)->GetPeakAttributeInfo(1, true).pkHeight, 8000);
}

TEST(PeakAttributes, EmptyWindowIsSearchedOnceMoreAndThenAnErrorAnEmptyRecordOrAZero) {
    for (const int first : {2, 3}) {
        ParserWorld test;
        test.set_peak(900, 0);
        test.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
            test.fill(spectrum);
            if (number == first) test.set_peak(900, 4321);
        };
        double height = 0;
        EXPECT_EQ(raised([&] { height = test.parser.GetPeakAttributes(900).pkHeight; }),
                  first == 2 ? "no error" : no_peaks);
        EXPECT_EQ(height, first == 2 ? 4321 : 0);
        EXPECT_EQ(test.instrument().spectra, 2);
    }
    ParserWorld test;
    test.set_peak(900, 0);
    EXPECT_EQ(raised([&] { test.parser.GetPeakListOfOnlyThisOneMass(900); }), no_peaks);
    EXPECT_EQ(test.parser.GetPeakAttributes(900, 0.2, enumPeakInfoUnits::amu, false), PeakInfo{});
    EXPECT_EQ(raised([&] { test.parser.GetPeakAttribute(PeakCalcType::Height, 900); }), no_peaks);
    test.test.trace().lines.clear();
    EXPECT_EQ(test.parser.GetPeakAttribute(PeakCalcType::Height, 900, 0.2, true), 0);
    EXPECT_EQ(test.traced_by("GetPeakAttribute"),
              (Lines{"error[-1] in GetPeakAttribute(): No peaks returned by peakfinder",
                     "no peaks returned, returning 0 height"}));
    test.peaks.returns_no_list = true;
    EXPECT_THAT(raised([&] { test.parser.GetPeakAttribute(PeakCalcType::Height, 900, 0.2, true); }),
                StartsWith("91|Korvane|Object variable or With block variable not set: peak list"));
    EXPECT_EQ(test.traced_by("GetPeakList").back(), "GetPeakList.Error[91]");
}

std::string heights_of(const PeakList& list) {
    std::string heights;
    for (std::int32_t i = 0; i < list.count(); ++i) append_text(heights, list.GetPeakAttributeInfo(i, true).pkHeight);
    return heights;
}

TEST(PeakList, MaxPeaksKeepsTheMostAbundantOnesInTheirOldOrder) {
    ParserWorld test;
    test.peaks.peaks.clear();
    for (const auto& [mass, height] : {std::pair{100.0, 5}, {400.0, 9}, {900.0, 1}, {1600.0, 8}, {2500.0, 5}})
        test.set_peak(mass, height);
    for (const auto& [most, heights] : {std::pair{0, "59185"}, {-1, "59185"}, {5, "59185"}, {3, "598"}})
        EXPECT_EQ(heights_of(*test.parser.GetPeakList(5000, 60000, most)), heights) << "a tie keeps the earlier";
    const PeakListObject kept = test.parser.GetPeakList(5000, 60000, 2);
    for (const auto& [direction, heights] : {std::pair{1, "89"}, {0, "98"}}) {
        kept->order(height_position, direction);
        EXPECT_EQ(heights_of(*kept), heights) << "ordering brought a dropped peak back";
    }
    EXPECT_EQ(kept->uncertainty(1)->centroid, 0.25);
    for (const std::int32_t outside : {-1, 2})
        EXPECT_EQ(raised([&] { (void)kept->GetPeakAttributeInfo(outside, true); }),
                  "9|Korvane|Subscript out of range: peak " + std::to_string(outside));
    kept->convert(*test.instrument().calibrations[0], convert_to_amu_mode);
    EXPECT_NEAR(kept->GetPeakAttributeInfo(0, true).pkCentroid, 400, 1e-9);
}

}  // namespace
}  // namespace korvane
