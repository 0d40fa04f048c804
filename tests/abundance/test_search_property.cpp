// Properties of the search over many simulated curves.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using Curve = std::function<double(double)>;
using End = AdjustOutcome::End;

enum class Kind { rising, falling, noisy, stepped, plateau, saturated, out_of_reach, no_peak, arbitrary };
constexpr int kinds = 9;

double uniform(std::mt19937& random, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
}

Curve random_curve(Kind kind, std::mt19937& random) {
    const double top = uniform(random, 1e5, 3e6), steepness = uniform(random, 0.3, 3);
    const Curve rising = [=](double v) { return top * std::pow(std::clamp(v / 100, 0.0, 1.0), steepness); };
    switch (kind) {
        case Kind::falling:
            return [=](double v) { return rising(100 - v); };
        case Kind::noisy:
            return [=, &random](double v) { return rising(v) * uniform(random, 0.7, 1.3); };
        case Kind::stepped:
            return [=](double v) { return std::floor(rising(v) / 2e5) * 2e5; };
        case Kind::plateau:
            return [=](double) { return top; };
        case Kind::saturated:
            return [=](double v) { return std::min(rising(v) * 10, 2.55e6); };
        case Kind::out_of_reach:
            return [=](double v) { return 4e8 + rising(v); };
        case Kind::no_peak:
            return [](double) { return 0.0; };
        case Kind::arbitrary:
            return [=](double v) { return top * (1 + std::sin(v * steepness)); };
        default:
            return rising;
    }
}

struct Trial {
    Trial(Kind kind, std::mt19937& random)
        : low(uniform(random, 0, 40)),
          high(uniform(random, 60, 100)),
          entry(uniform(random, 0, 100)),
          resolution(std::exp(uniform(random, std::log(0.02), std::log(20)))),
          target(uniform(random, 5e4, 1e6)),
          tolerance(uniform(random, 0, 1) < 0.3 ? 0 : uniform(random, 0, 4e5)),
          lower_reduces((uniform(random, 0, 1) < 0.9) == (kind != Kind::falling)) {}

    double low, high, entry, resolution, target, tolerance;
    bool lower_reduces;
};

/// What the search has to return and how it has to end, from nothing but what was measured at its probes.
void expect_defined(const AdjustOutcome& outcome, const Trial& trial) {
    AdjustOutcome expected{End::target_never_reached, trial.entry, 0, trial.target / 10, 10, {}};
    double low = trial.low, high = trial.high, last = low;
    for (const AdjustProbe& probe : outcome.probes) {
        ASSERT_NE(expected.end, End::within_tolerance) << "went on after a probe within the tolerance";
        EXPECT_EQ(probe.number, &probe - outcome.probes.data() + 1);
        EXPECT_EQ(probe.value, (high + low) / 2);
        EXPECT_GE(std::abs(probe.value - last), trial.resolution);
        last = probe.value;
        const bool is_under = probe.abundance <= expected.scaled_target;
        const bool is_near = std::abs(expected.scaled_target - probe.abundance) < trial.tolerance * 0.1 / 10;
        if (!is_near) (is_under == trial.lower_reduces ? low : high) = probe.value;
        EXPECT_EQ(probe.low, low);
        EXPECT_EQ(probe.high, high);
        if (!is_near && !(is_under && probe.abundance > expected.abundance)) continue;
        expected.end = is_near ? End::within_tolerance : End::resolution_reached;
        expected.value = probe.value;
        expected.abundance = probe.abundance;
    }
    if (expected.end != End::within_tolerance) {
        EXPECT_LT(std::abs((high + low) / 2 - last), trial.resolution) << "ended too early";
    }
    EXPECT_EQ(outcome.end, expected.end);
    EXPECT_EQ(outcome.value, expected.value);
    EXPECT_EQ(outcome.abundance, expected.abundance);
    EXPECT_EQ(outcome.scaled_target, expected.scaled_target);
    EXPECT_EQ(outcome.speed_up_factor, expected.speed_up_factor);
}

class SearchProperties : public testing::TestWithParam<bool> {};

TEST_P(SearchProperties, HoldOnHundredsOfCurves) {
    SearchWorld test(GetParam());
    test.test.trace().on = false;
    std::mt19937 random(GetParam() ? 11 : 7);
    for (int i = 0; i < 25 * kinds; ++i) {
        const Kind kind = static_cast<Kind>(i % kinds);
        SCOPED_TRACE(testing::Message() << "trial " << i << ", kind " << i % kinds);
        test.curve = random_curve(kind, random);
        const Trial trial(kind, random);
        test.instrument().setpoint(SearchWorld::adjustable_setpoint).value = trial.entry;
        test.test.limit("Calibration", "BinarySearchAbTolerance", number_text(trial.tolerance));
        test.parser = SpectrumParser(test.platform());  // reads the new limits
        std::vector<double> applied;
        test.parser.on_adjust_probe([&](const AdjustProbe& probe) {
            EXPECT_EQ(probe.value, test.outcome().probes.back().value);
            applied.push_back(test.applied_value());
        });
        const double result = test.adjust(trial.target, trial.low, trial.high, trial.resolution, trial.lower_reduces);
        EXPECT_EQ(result, test.outcome().value);
        EXPECT_EQ(test.transients(), 10000) << "transients not restored";
        expect_defined(test.outcome(), trial);
        ASSERT_EQ(applied.size(), test.outcome().probes.size());
        for (std::size_t probe = 0; probe < applied.size(); ++probe) {
            const double value = test.outcome().probes[probe].value;
            EXPECT_EQ(applied[probe], test.fast ? static_cast<double>(static_cast<float>(value)) : value);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Search, SearchProperties, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Fast" : "Normal"; });

}  // namespace
}  // namespace korvane
