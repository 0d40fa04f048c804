// The integer copy of a spectrum: rounding, overflow, and never another spectrum's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <limits>
#include <random>

#include "platform/automation_arithmetic.h"
#include "spectrum/search_copy.h"
#include "support/raised.h"

namespace korvane {
namespace {

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
