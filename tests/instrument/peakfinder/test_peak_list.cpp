// The list of peaks: order, units, errors.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "instrument/masstime/square_law_calibration.h"
#include "instrument/peakfinder/measured_peak_list.h"
#include "support/raised.h"

namespace korvane {
namespace {

/// Records whose eight values are ordered differently at every position; two of them tie.
std::vector<MeasuredPeak> mixed_peaks() {
    std::vector<MeasuredPeak> peaks;
    for (int i = 0; i < 6; ++i) {
        const double time_ns = 50000 + 1000 * ((i * 5) % 6);
        const double width_ns = 1 + (i * 7) % 5;
        PeakInfo record{time_ns - 0.1, time_ns - 9,          100.0 * ((i * 3) % 4),    time_ns,
                        width_ns,      50.0 * ((i + 2) % 3), time_ns / (2 * width_ns), time_ns + 9};
        peaks.push_back({record, {0.01 * (i + 1), 1, 0.02, 3, 40}});
    }
    return peaks;
}

SquareLawCalibration calibration() {
    return SquareLawCalibration({4.5e-4, 20});
}

TEST(MeasuredPeakList, OrdersByEveryPositionInBothDirectionsBeforeAndAfterConversion) {
    for (const bool converted : {false, true}) {
        MeasuredPeakList list(mixed_peaks());
        if (converted) list.convert(calibration(), convert_to_amu_mode);
        for (std::int32_t position = 0; position < 8; ++position) {
            for (const std::int32_t direction : {0, 1, -3}) {
                list.order(position, direction);
                for (std::int32_t i = 1; i < list.count(); ++i) {
                    const double before = list.GetPeakAttributeInfo(i - 1, true).value(position);
                    const double after = list.GetPeakAttributeInfo(i, true).value(position);
                    EXPECT_TRUE(direction == 0 ? before >= after : before <= after)
                        << position << " " << direction << " " << before << " " << after;
                }
            }
        }
    }
}

TEST(MeasuredPeakList, OrderKeepsTiesRecordsAndErrorsTogether) {
    const auto peaks = mixed_peaks();
    MeasuredPeakList list(peaks);
    list.convert(calibration(), convert_to_amu_mode);
    list.order(height_position, 0);
    double last_height = 1e9;
    double last_place = -1;
    for (std::int32_t i = 0; i < list.count(); ++i) {
        const auto ns = list.GetPeakAttributeInfo(i, false);
        const auto amu = list.GetPeakAttributeInfo(i, true);
        EXPECT_EQ(amu.pkCentroid, calibration().mass_from_time(ns.pkCentroid));
        double place = 0;
        while (!(peaks[static_cast<std::size_t>(place)].record == ns)) ++place;
        if (ns.pkHeight == last_height) {
            EXPECT_GT(place, last_place);
        }
        last_height = ns.pkHeight;
        last_place = place;
        const double own_error_ns = peaks[static_cast<std::size_t>(place)].uncertainty.centroid;
        const double amu_per_ns = 2 * 4.5e-4 * 4.5e-4 * (ns.pkCentroid - 20);
        EXPECT_NEAR(list.uncertainty(i)->centroid, own_error_ns * amu_per_ns, 1e-6 * own_error_ns);
    }
}

TEST(MeasuredPeakList, ConversionKeepsCountsAndMakesMassesOfTimes) {
    MeasuredPeakList list(mixed_peaks());
    list.convert(calibration(), convert_to_amu_mode);
    const SquareLawCalibration other({9e-4, 0});
    list.convert(other, convert_to_amu_mode);  // converting twice is converting once
    for (std::int32_t i = 0; i < list.count(); ++i) {
        const auto ns = list.GetPeakAttributeInfo(i, false);
        const auto amu = list.GetPeakAttributeInfo(i, true);
        EXPECT_EQ(ns, mixed_peaks()[static_cast<std::size_t>(i)].record);
        EXPECT_EQ(amu.pkApexX, calibration().mass_from_time(ns.pkApexX));
        EXPECT_EQ(amu.pkStart, calibration().mass_from_time(ns.pkStart));
        EXPECT_EQ(amu.pkEnd, calibration().mass_from_time(ns.pkEnd));
        EXPECT_EQ(amu.pkArea, ns.pkArea);
        EXPECT_EQ(amu.pkHeight, ns.pkHeight);
        const double width = calibration().mass_from_time(ns.pkCentroid + ns.pkWidth / 2) -
                             calibration().mass_from_time(ns.pkCentroid - ns.pkWidth / 2);
        EXPECT_EQ(amu.pkWidth, width);
        // m / dm is t / (2 dt) but for the time offset of the law.
        EXPECT_NEAR(amu.pkResolution / ns.pkResolution, 1, 1e-3);
        EXPECT_EQ(amu.pkResolution, amu.pkCentroid / amu.pkWidth);
    }
}

TEST(MeasuredPeakList, WrongIndexPositionOrModeIsAnErrorThatNamesIt) {
    MeasuredPeakList list(mixed_peaks());
    MeasuredPeakList empty({});
    for (const std::int32_t index : {-1, 6, 2147483647}) {
        const std::string text = std::to_string(index);
        EXPECT_EQ(raised([&] { list.GetPeakAttributeInfo(index, true); }).substr(0, 2), "9|");
        EXPECT_NE(raised([&] { list.GetPeakAttributeInfo(index, false); }).find(text), std::string::npos);
        EXPECT_EQ(raised([&] { list.uncertainty(index); }).substr(0, 2), "9|");
    }
    EXPECT_EQ(raised([&] { empty.GetPeakAttributeInfo(0, true); }).substr(0, 2), "9|");
    EXPECT_EQ(raised([&] { empty.order(8, 0); }).substr(0, 2), "9|");
    EXPECT_EQ(raised([&] { list.order(-1, 0); }).substr(0, 2), "9|");
    EXPECT_NE(raised([&] { list.convert(calibration(), 1); }).find("5|"), std::string::npos);
    EXPECT_EQ(raised([&] { empty.convert(calibration(), convert_to_amu_mode); }), "no error");
    // A refused conversion leaves the list as it was.
    EXPECT_EQ(list.GetPeakAttributeInfo(0, true), list.GetPeakAttributeInfo(0, false));
}

}  // namespace
}  // namespace korvane
