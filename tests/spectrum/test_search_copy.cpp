// The integer copy of a spectrum: rounding, overflow, and never another spectrum's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <limits>
#include <random>

#include "spectrum/search_copy.h"
#include "support/raised.h"

namespace korvane {
namespace {

/// Samples that conversions get wrong: ties of both parities, next to ties, negative, near the ends of the range.
std::vector<double> hard_samples(std::size_t count, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> kind(0, 4), whole(-300000, 300000);
    std::vector<double> samples;
    for (std::size_t i = 0; i < count; ++i) {
        const double base = whole(random);
        const double choices[] = {base + 0.5, std::nextafter(base + 0.5, base),
                                  base < 0 ? -2147483648.5 : 2147483647.25, base / 7, base / 7};
        samples.push_back(choices[kind(random)]);
    }
    return samples;
}

/// Halves to even, written independently of the library.
std::int32_t reference_integer(double value) {
    const auto below = static_cast<std::int64_t>(std::floor(value));
    const double part = value - static_cast<double>(below);
    const bool up = part > 0.5 || (part == 0.5 && below % 2 != 0);
    return static_cast<std::int32_t>(below + (up ? 1 : 0));
}

TEST(SearchCopy, ConvertsHalvesToEvenInEveryRoundingModeAndAtEveryLength) {
    for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        for (std::size_t count = 1; count < 40; ++count) {
            const std::vector<double> samples = hard_samples(count, static_cast<std::uint32_t>(count));
            std::vector<std::int32_t> expected(count), portable(count);
            std::transform(samples.begin(), samples.end(), expected.begin(), reference_integer);
            SearchCopy copy;
            std::fesetround(mode);
            copy.take(samples);
            conversion::convert_portably(samples, portable.data());
            const int mode_after = std::fegetround();
            std::fesetround(FE_TONEAREST);
            EXPECT_EQ(mode_after, mode) << "the host's rounding mode was not put back";
            EXPECT_TRUE(std::ranges::equal(copy.counts(), expected)) << "length " << count << ", mode " << mode;
            EXPECT_EQ(portable, expected);
            EXPECT_EQ(copy.maximum(), *std::max_element(samples.begin(), samples.end()));
        }
}

TEST(SearchCopy, FindsAnOverflowWhereverItStands) {
    const double bad_values[] = {2147483647.5, -2147483649.0, 1e300, std::numeric_limits<double>::quiet_NaN(),
                                 -std::numeric_limits<double>::infinity()};
    for (const double bad : bad_values)
        for (std::size_t position = 0; position < 21; ++position) {
            std::vector<double> samples(21, 7.0);
            samples[position] = bad;
            SearchCopy copy;
            EXPECT_TRUE(raised([&] { copy.take(samples); }).starts_with("6|")) << bad << " " << position;
        }
    SearchCopy copy;
    copy.take(std::vector<double>(9, -2147483648.0));
    EXPECT_EQ(copy.counts()[8], std::numeric_limits<std::int32_t>::min());
}

TEST(SearchCopy, NeverServesAnotherSpectrumNorAHalfConvertedOne) {
    SearchCopy copy;
    for (int i = 0; i < 50; ++i) {
        copy.take(std::vector<double>(1000, i));  // the allocator likes to hand out the same place again
        EXPECT_EQ(copy.counts()[999], i);
        if (i % 3 == 0) copy.release();
    }
    std::vector<double> bad(100, 1.0);
    bad[99] = 1e12;
    const VariantArray<double> good(std::vector<double>(100, 2.0)), overflowing(std::move(bad));
    copy.take(good);
    EXPECT_THROW(copy.take(overflowing), Error);
    EXPECT_THROW(copy.take(overflowing), Error) << "the second time was taken for the kept copy";
    copy.take(good);
    EXPECT_EQ(copy.counts()[0], 2);
}

TEST(SearchCopy, StartsAtIndexZeroOfAnArrayWithOtherBounds) {
    SearchCopy copy;
    const VariantArray<double> low(std::vector<double>{90, 80, 1, 2}, -2);
    copy.take(low);
    EXPECT_TRUE(std::ranges::equal(copy.counts(), std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(copy.maximum(), 2);
    copy.take(VariantArray<double>(low.storage(), -3));
    EXPECT_TRUE(std::ranges::equal(copy.counts(), std::vector<std::int32_t>{2})) << "the same storage, other bounds";
    EXPECT_EQ(raised([&] { copy.take(VariantArray<double>(low.storage(), 1)); }),
              "9|Korvane|Subscript out of range: index 0");
    EXPECT_EQ(raised([&] { copy.take(std::vector<double>{}); }), "9|Korvane|Subscript out of range: index 0");
    EXPECT_EQ(raised([&] { copy.take(VariantArray<double>()); }), "13|Korvane|Type mismatch");
}

}  // namespace
}  // namespace korvane
