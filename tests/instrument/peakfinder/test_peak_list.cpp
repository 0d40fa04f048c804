// The list of peaks: order, units, errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "instrument/peakfinder/measured_peak_list.h"
#include "korvane/embedded_parts.h"
#include "support/raised.h"

namespace korvane {
namespace {

/// Records whose eight values are ordered differently at every position; some of them tie.
std::vector<MeasuredPeak> mixed_peaks() {
    std::vector<MeasuredPeak> peaks;
    for (int i = 0; i < 6; ++i) {
        const double time_ns = 50000 + 1000 * ((i * 5) % 6);
        const double width_ns = 1 + (i * 7) % 5;
        PeakInfo record{time_ns - 0.1, time_ns - 9,          100.0 * ((i * 3) % 4),    time_ns,
                        width_ns,      50.0 * ((i + 2) % 3), time_ns / (2 * width_ns), time_ns + 9};
        peaks.push_back({record, {0.01 * (i + 1), 1, 0.02, 3, 40}, {false, false, false, 1.0 + i}});
    }
    return peaks;
}

const CalibrationObject calibration = make_square_law_calibration({4.5e-4, 20});

PeakInfo in_amu(const PeakInfo& ns) {
    auto mass = [](double time_ns) { return calibration->mass_from_time(time_ns); };
    const double width = mass(ns.pkCentroid + ns.pkWidth / 2) - mass(ns.pkCentroid - ns.pkWidth / 2);
    return {mass(ns.pkApexX),
            mass(ns.pkStart),
            ns.pkArea,
            mass(ns.pkCentroid),
            width,
            ns.pkHeight,
            mass(ns.pkCentroid) / width,
            mass(ns.pkEnd)};
}

TEST(MeasuredPeakList, OrdersByEveryPositionConvertsOnceAndKeepsTiesAndErrorsWithTheirRecords) {
    for (int variant = 0; variant < 2 * 8 * 3; ++variant) {
        const bool converted = variant % 2 == 0;
        const std::int32_t position = variant / 2 % 8;
        const std::int32_t direction = std::array{0, 1, -3}[variant / 16];
        SCOPED_TRACE(variant);
        const auto peaks = mixed_peaks();
        MeasuredPeakList list(peaks);
        if (converted) list.convert(*calibration, convert_to_amu_mode);
        if (converted) list.convert(*make_square_law_calibration({9e-4, 0}), convert_to_amu_mode);
        list.order(position, direction);
        EXPECT_TRUE(raised([&] { list.order(8, direction); }).starts_with("9|"));
        auto place = [&](std::int32_t i) {
            const PeakInfo record = list.GetPeakAttributeInfo(i, false);
            return std::ranges::find(peaks, record, &MeasuredPeak::record) - peaks.begin();
        };
        for (std::int32_t i = 0; i < 6; ++i) {
            const auto& [ns, uncertainty, quality, signal] = peaks[place(i)];
            const PeakInfo found = list.GetPeakAttributeInfo(i, true);
            EXPECT_EQ(found, converted ? in_amu(ns) : ns);
            const double units = converted ? 2 * 4.5e-4 * 4.5e-4 * (ns.pkCentroid - 20) : 1;
            EXPECT_NEAR(list.uncertainty(i)->centroid / units, uncertainty.centroid, 1e-8);
            EXPECT_NEAR(list.uncertainty(i)->width / units, 0.02, 1e-8);
            EXPECT_EQ(list.quality(i)->misfit, quality.misfit);
            if (i == 0) continue;
            const double before = list.GetPeakAttributeInfo(i - 1, true).value(position);
            EXPECT_TRUE(direction == 0 ? before >= found.value(position) : before <= found.value(position));
            EXPECT_TRUE(before != found.value(position) || place(i - 1) < place(i));
        }
    }
}

}  // namespace
}  // namespace korvane
