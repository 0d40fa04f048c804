// Variates and elementary functions against the distributions and functions that they stand for.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/quantile_tables.h"
#include "instrument/simulator/random_stream.h"
#include "instrument/simulator/simulator_bench.h"

namespace korvane::simulation {
namespace {

TEST(PortableMath, AgreesWithTheLibraryFunctionsOverTheirRange) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; ++i) {
        const double x = std::uniform_real_distribution<double>(-40, 40)(random);
        EXPECT_NEAR(portable_exp(x) / std::exp(x), 1.0, 1e-13) << x;
        EXPECT_NEAR(portable_log(std::exp(x)), x, 1e-13) << x;
        EXPECT_NEAR(portable_sine_of_turns(x), std::sin(2 * pi * (x - std::floor(x))), 1e-12) << x;
        const double z = x / 8;
        EXPECT_NEAR(normal_distribution(z), 0.5 * std::erfc(-z / std::sqrt(2.0)), 1e-14) << z;
    }
    for (int n = 0; n < 5000; n += 1 + n / 10)
        EXPECT_NEAR(log_factorial(n), std::lgamma(n + 1.0), 1e-11 * (1 + n * std::log(n + 1.0))) << n;
}

TEST(PortableMath, ExponentialEndsInZeroAndStaysFinite) {
    EXPECT_EQ(portable_exp(-1e300), 0.0);
    EXPECT_TRUE(std::isfinite(portable_exp(1e300)));
}

TEST(QuantileTables, HaveTheMomentsOfTheirDistributions) {
    const Moments normal(normal_quantiles());
    EXPECT_NEAR(normal.mean, 0.0, 1e-12);
    EXPECT_NEAR(normal.variance, 1.0, 2e-4);
    const Moments exponential(exponential_quantiles());
    EXPECT_NEAR(exponential.mean, 1.0, 1e-4);
    EXPECT_NEAR(exponential.variance, 1.0, 2e-3);
    for (const double spread : {0.0, 0.3, 0.5, 1.0}) {
        const Moments heights(log_normal_quantiles(spread));
        EXPECT_NEAR(heights.mean, 1.0, 1e-3) << spread;
        EXPECT_NEAR(std::sqrt(heights.variance), spread, 0.01 * spread) << spread;
    }
}

TEST(QuantileTables, NormalEntriesInvertTheDistributionFunction) {
    for (std::size_t i = 0; i < quantile_count; i += 311)
        EXPECT_NEAR(normal_distribution(normal_quantiles()[i]), (static_cast<double>(i) + 0.5) / quantile_count, 1e-9);
}

// Chi-square of the drawn counts against the Poisson probabilities, cells of at least 25 expected draws.
double chi_square_per_cell(double mean, int draws, RandomStream& random, int& cells) {
    std::vector<double> seen(static_cast<std::size_t>(mean + 12 * std::sqrt(mean) + 30), 0.0);
    for (int i = 0; i < draws; ++i) seen.at(static_cast<std::size_t>(random.poisson(mean))) += 1;
    double sum = 0, pooled_expected = 0, pooled_seen = 0;
    for (std::size_t k = 0; k < seen.size(); ++k) {
        const double n = static_cast<double>(k);
        pooled_expected += draws * std::exp(n * std::log(mean) - mean - std::lgamma(n + 1.0));
        pooled_seen += seen[k];
        if (pooled_expected < 25) continue;
        sum += (pooled_seen - pooled_expected) * (pooled_seen - pooled_expected) / pooled_expected;
        ++cells;
        pooled_expected = pooled_seen = 0;
    }
    return sum / cells;
}

TEST(Poisson, CountsFollowTheDistributionBelowAndAboveTheChangeOfMethod) {
    RandomStream random(5, 0);
    for (const double mean : {0.01, 0.4, 3.0, 9.99, 10.0, 30.0, 250.0, 4000.0}) {
        int cells = 0;
        const double reduced = chi_square_per_cell(mean, 200000, random, cells);
        EXPECT_LT(reduced, 1.0 + 5.0 * std::sqrt(2.0 / cells)) << "mean " << mean << ", cells " << cells;
    }
}

TEST(Poisson, HugeMeansKeepMeanAndVariance) {
    RandomStream random(6, 0);
    for (const double mean : {1e5, 1e7}) {
        std::vector<double> draws(40000);
        for (double& draw : draws) draw = static_cast<double>(random.poisson(mean));
        const Moments moments(draws);
        EXPECT_NEAR(moments.mean, mean, 5 * std::sqrt(mean / 40000));
        EXPECT_NEAR(moments.variance / mean, 1.0, 5 * std::sqrt(2.0 / 40000));
    }
}

TEST(RandomStream, StreamsOfOneSeedDoNotRepeatEachOther) {
    RandomStream first(1, 0), second(1, 1), other_seed(2, 0);
    int equal = 0;
    for (int i = 0; i < 1000; ++i) {
        const auto bits = first.next_bits();
        equal += bits == second.next_bits();
        equal += bits == other_seed.next_bits();
    }
    EXPECT_EQ(equal, 0);
}

}  // namespace
}  // namespace korvane::simulation
