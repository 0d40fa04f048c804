// What a search is given: masses turned into ranges of sample positions, and the integer copy of a spectrum, which is
// rounded, overflows, and is never another spectrum's.
#include <gtest/gtest.h>
#include <algorithm>
#include <cfenv>

#include <cmath>
#include <random>

#include "platform/automation_arithmetic.h"
#include "spectrum/search_copy.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

struct Windows : ParserWorld {
    std::string set_up(const VariantArray<double>& list, double delta_mass, float percent) {
        return raised(
            [&] { parser.CalculateTimeIndex(axis, instrument().calibrations[0], list, delta_mass, percent); });
    }
    /// "dStartIndex[...], EndTimeRange[...]" of a position, as the search logs it; the error where it has no range.
    std::string range(std::int32_t position) {
        PeakInfo ns, amu;
        double baseline = 0;
        const std::string error = raised([&] {
            parser.FindPeakForMass(position, start_ns, samples, ns, amu, baseline, instrument().calibrations[0]);
        });
        if (error != "no error") return error;
        const std::string line = tune_log()[tune_log().size() - 3];
        const auto from = line.find("dStartIndex"), to = line.find(", dStartTimeToSearch");
        return line.substr(from, to - from);
    }
};

TEST(MassSearch, FindsTheNearerNeighbourOnAnyAxis) {
    Windows test;
    test.test.trace().on = false;
    std::mt19937 random(5);
    std::uniform_real_distribution<double> step(0.01, 2), position(0, 1);
    for (int trial = 0; trial < 400; ++trial) {
        std::vector<double> axis{100};
        const std::size_t count = 2 + trial % 37;
        while (axis.size() < count) axis.push_back(axis.back() + step(random));
        const double mass = axis.front() + position(random) * (axis.back() - axis.front());
        std::size_t upper = 1;
        while (axis[upper] <= mass) ++upper;
        const bool takes_upper = axis[upper] - mass < mass - axis[upper - 1];
        // The bisection never looks between the first two samples of a longer axis.
        const int nearest = upper == 1 && count > 2 ? -1 : static_cast<int>(takes_upper ? upper : upper - 1);
        EXPECT_EQ(test.parser.GetMassArrayIndexForThisMass(axis, mass), nearest) << "trial " << trial;
    }
    // A tie goes to the lower sample; an exact hit counts at the last midpoint only: 2, then 1 or 3.
    const std::pair<double, int> cases[] = {{102.5, 2}, {99, -1}, {105, -1}, {101, 1}, {102, -1}, {103, 3}};
    for (const auto& [mass, index] : cases)
        EXPECT_EQ(test.parser.GetMassArrayIndexForThisMass(std::vector<double>{100, 101, 102, 103, 104}, mass), index);
    EXPECT_EQ(raised([&] { test.parser.GetMassArrayIndexForThisMass(std::vector<double>{100}, 100); }),
              "9|Korvane|Subscript out of range: index 1");
}

TEST(TimeIndex, WindowReachesTheSameShareOrMassToBothSidesOfThePositionsFromZeroOn) {
    Windows test;
    const VariantArray<double> list(std::vector<double>{100, 900, 400, 1600}, -2);
    for (const auto& [delta, percent, first, second] :
         // 39600 and 40400 ns, on samples every 10 ns from 5003 ns: the nearer ones are 39603 and 40403.
         {std::tuple{0.0, 1.0F, "dStartIndex[1480], EndTimeRange[1520]", "dStartIndex[3460], EndTimeRange[3540]"},
          {4.0, 0.0F, "dStartIndex[1490], EndTimeRange[1510]", "dStartIndex[3495], EndTimeRange[3505]"},
          {0.0, 0.0F, "dStartIndex[1500], EndTimeRange[1500]", "dStartIndex[3500], EndTimeRange[3500]"}}) {
        EXPECT_EQ(test.set_up(list, delta, percent), "no error");
        EXPECT_EQ(test.range(0), first);
        EXPECT_EQ(test.range(1), second);
    }
    for (const double delta : {-1.0, std::nan("")})
        EXPECT_EQ(test.set_up(list, delta, -1), "-1|CalculateTimeIndex|Invalid delta mass or percentage time");
    EXPECT_EQ(test.range(0), "dStartIndex[1500], EndTimeRange[1500]") << "a refused window changed the table";
    for (const int outside : {-1, 2})
        EXPECT_EQ(test.range(outside),
                  "9|Korvane|Subscript out of range: calibrant position " + std::to_string(outside));
    test.instrument().calibrations[0] = nullptr;
    EXPECT_EQ(test.set_up(list, 0, 1).substr(0, 3), "91|");
}

TEST(SearchCopy, IsTheOneOfTheSpectrumTakenLastInEveryRoundingMode) {
    std::mt19937 random(5);
    std::uniform_int_distribution<int> kind(0, 4), whole(-300000, 300000), bound(-2, 1), length(1, 40);
    const double out_of_range[] = {2147483647.5, -2147483649.0, std::nan("")};
    SearchCopy copy;
    VariantArray<double> samples;
    for (int trial = 0; trial < 4000; ++trial) {
        if (trial % 3 == 0) {  // else the same again, whether its copy was made, failed or was let go
            std::vector<double> values(static_cast<std::size_t>(length(random)));
            for (double& value : values) {
                const double base = whole(random);
                const double choices[] = {base + 0.5, std::nextafter(base + 0.5, base),
                                          base < 0 ? -2147483648.5 : 2147483647.25, base / 7, base / 7};
                value = choices[kind(random)];
            }
            if (trial % 15 == 0) values[random() % values.size()] = out_of_range[random() % 3];
            samples = VariantArray<double>(std::move(values), bound(random));
        }
        if (trial % 7 == 0) copy.release();
        const bool has_zero = samples.lower_bound() <= 0 && samples.upper_bound() >= 0;
        std::vector<double> searched;
        for (int i = 0; has_zero && i <= samples.upper_bound(); ++i) searched.push_back(samples.at(i));
        const bool overflows =
            !std::ranges::all_of(searched, [](double value) { return value >= -2147483648.5 && value < 2147483647.5; });
        const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
        std::fesetround(modes[trial % 4]);
        const std::string error = raised([&] { copy.take(samples); });
        const int mode_after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(mode_after, modes[trial % 4]) << "the host's rounding mode was not put back";
        ASSERT_EQ(error.substr(0, 2), !has_zero ? "9|" : overflows ? "6|" : "no") << "trial " << trial;
        if (error != "no error") continue;
        std::vector<std::int32_t> expected(searched.size());
        std::ranges::transform(searched, expected.begin(), [](double value) { return to_int32(value); });
        ASSERT_TRUE(std::ranges::equal(copy.counts(), expected)) << "trial " << trial;
        ASSERT_EQ(copy.maximum(), std::ranges::max(searched));
    }
    EXPECT_EQ(raised([&] { copy.take(VariantArray<double>()); }), "13|Korvane|Type mismatch");
}

}  // namespace
}  // namespace korvane
