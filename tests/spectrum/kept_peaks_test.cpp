#include "spectrum/kept_peaks.h"

#include <gtest/gtest.h>

#include "instrument/peakfinder/measured_peak_list.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

PeakListObject list_of_heights(const std::vector<double>& heights) {
    std::vector<MeasuredPeak> peaks;
    for (const double height : heights) {
        MeasuredPeak peak;
        peak.record.pkCentroid = 10000.0 + 1000.0 * static_cast<double>(peaks.size());
        peak.record.pkHeight = height;
        peak.uncertainty.height = height / 10;
        peaks.push_back(peak);
    }
    return std::make_shared<MeasuredPeakList>(peaks);
}

std::vector<double> heights_of(const PeakList& list) {
    std::vector<double> heights;
    for (std::int32_t i = 0; i < list.count(); ++i) heights.push_back(list.GetPeakAttributeInfo(i, true).pkHeight);
    return heights;
}

using Heights = std::vector<double>;

TEST(KeptPeaks, KeepsTheMostAbundantInTheirOldOrder) {
    EXPECT_EQ(heights_of(*most_abundant_peaks(list_of_heights({5, 9, 1, 8, 5}), 3)), (Heights{5, 9, 8}));
}

TEST(KeptPeaks, OrderingNeverBringsADroppedPeakBack) {
    const PeakListObject kept = most_abundant_peaks(list_of_heights({5, 9, 1, 8}), 2);
    kept->order(height_position, 1);
    EXPECT_EQ(heights_of(*kept), (Heights{8, 9}));
    kept->order(height_position, 0);
    EXPECT_EQ(heights_of(*kept), (Heights{9, 8}));
    EXPECT_EQ(kept->uncertainty(1)->height, 0.8);
    for (const std::int32_t outside : {-1, 2})
        EXPECT_EQ(error_of([&] { kept->GetPeakAttributeInfo(outside, true); }).number(), error_number::subscript);
}

TEST(KeptPeaks, ConversionReachesTheKeptPeaks) {
    SpectrumWorld world;
    const PeakListObject kept = most_abundant_peaks(list_of_heights({1, 9}), 1);
    kept->convert(*world.instrument().calibrations[0], convert_to_amu_mode);
    EXPECT_DOUBLE_EQ(kept->GetPeakAttributeInfo(0, true).pkCentroid, 121);
    EXPECT_EQ(kept->GetPeakAttributeInfo(0, false).pkCentroid, 11000);
}

}  // namespace
}  // namespace korvane
