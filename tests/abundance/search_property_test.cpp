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

Curve random_curve(Kind kind, std::mt19937& random) {
    const auto uniform = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    const double top = uniform(1e5, 3e6), steepness = uniform(0.3, 3);
    const Curve rising = [=](double v) { return top * std::pow(std::clamp(v / 100, 0.0, 1.0), steepness); };
    switch (kind) {
        case Kind::falling:
            return [=](double v) { return rising(100 - v); };
        case Kind::noisy:
            return
                [=, &random](double v) { return rising(v) * std::uniform_real_distribution<double>(0.7, 1.3)(random); };
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
    double entry, low, high, resolution, target, tolerance;
    bool lower_reduces;
};

Trial random_trial(Kind kind, std::mt19937& random) {
    const auto uniform = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    Trial trial{};
    trial.low = uniform(0, 40);
    trial.high = uniform(60, 100);
    trial.entry = uniform(0, 100);
    trial.resolution = std::exp(uniform(std::log(0.02), std::log(20)));
    trial.target = uniform(5e4, 1e6);
    trial.tolerance = std::bernoulli_distribution(0.3)(random) ? 0 : uniform(0, 4e5);
    trial.lower_reduces = std::bernoulli_distribution(0.9)(random) == (kind != Kind::falling);
    return trial;
}

/// What the search has to return, from nothing but its probes.
double defined_result(const AdjustOutcome& outcome, const Trial& trial) {
    if (outcome.end == End::within_tolerance) return outcome.probes.back().value;
    double best = trial.entry, best_abundance = 0;
    for (const AdjustProbe& probe : outcome.probes)
        if (probe.abundance <= outcome.scaled_target && probe.abundance > best_abundance) {
            best = probe.value;
            best_abundance = probe.abundance;
        }
    return best;
}

void expect_bisection(const AdjustOutcome& outcome, const Trial& trial) {
    double low = trial.low, high = trial.high;
    for (const AdjustProbe& probe : outcome.probes) {
        EXPECT_EQ(probe.value, (high + low) / 2);
        EXPECT_GE(probe.value, trial.low);
        EXPECT_LE(probe.value, trial.high);
        const bool last_within = outcome.end == End::within_tolerance && &probe == &outcome.probes.back();
        const bool move_high = (probe.abundance > outcome.scaled_target) == trial.lower_reduces;
        if (!last_within) (move_high ? high : low) = probe.value;
        EXPECT_EQ(probe.low, low);
        EXPECT_EQ(probe.high, high);
    }
}

void expect_ending(const AdjustOutcome& outcome, const Trial& trial) {
    const double scaled_tolerance = trial.tolerance * 0.1 / 10;
    for (const AdjustProbe& probe : outcome.probes) {
        const bool within = std::abs(outcome.scaled_target - probe.abundance) < scaled_tolerance;
        EXPECT_EQ(within, outcome.end == End::within_tolerance && &probe == &outcome.probes.back());
    }
    const bool came_under = std::any_of(outcome.probes.begin(), outcome.probes.end(), [&](const AdjustProbe& probe) {
        return probe.abundance > 0 && probe.abundance <= outcome.scaled_target;
    });
    if (outcome.end != End::within_tolerance) {
        EXPECT_EQ(outcome.end, came_under ? End::resolution_reached : End::target_never_reached);
        EXPECT_EQ(outcome.abundance > 0, came_under);
    }
    const double limit = std::ceil(std::log2((trial.high - trial.low) / trial.resolution)) + 2;
    EXPECT_LE(static_cast<double>(outcome.probes.size()), std::max(limit, 0.0));
}

class SearchProperties : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) test.run_fast();
        test.world.test.trace().on = false;
        test.parser.on_adjust_probe([this](const AdjustProbe& probe) { observed.push_back(probe.value); });
    }
    double search(const Trial& trial) {
        observed.clear();
        test.world.instrument().setpoint(50).value = trial.entry;
        test.world.test.limit("Calibration", "BinarySearchAbTolerance", number_text(trial.tolerance));
        SpectrumParser fresh(test.world.platform());  // reads the new limits
        fresh.on_adjust_probe([this](const AdjustProbe& probe) { observed.push_back(probe.value); });
        test.parser = std::move(fresh);
        return test.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, trial.target, 30, trial.lower_reduces,
                                                                      trial.low, trial.high, trial.resolution);
    }

    SearchWorld test;
    std::vector<double> observed;
};

TEST_P(SearchProperties, HoldOnHundredsOfCurves) {
    std::mt19937 random(GetParam() ? 11 : 7);
    for (int i = 0; i < 25 * kinds; ++i) {
        const Kind kind = static_cast<Kind>(i % kinds);
        SCOPED_TRACE(testing::Message() << "trial " << i << ", kind " << i % kinds);
        test.curve = random_curve(kind, random);
        const Trial trial = random_trial(kind, random);
        const double result = search(trial);
        const AdjustOutcome& outcome = test.parser.last_adjustment();
        EXPECT_EQ(outcome.scaled_target, trial.target / 10);
        EXPECT_EQ(result, defined_result(outcome, trial));
        EXPECT_EQ(result, outcome.value);
        EXPECT_EQ(test.transients(), 10000) << "transients not restored";
        expect_bisection(outcome, trial);
        expect_ending(outcome, trial);
        ASSERT_EQ(observed.size(), outcome.probes.size());
        if (!observed.empty()) {
            const double applied = test.applied_value();
            EXPECT_EQ(applied, test.fast ? static_cast<double>(static_cast<float>(observed.back())) : observed.back());
        }
    }
}

TEST_P(SearchProperties, MonotoneCurveIsFollowedToItsCrossing) {
    std::mt19937 random(3);
    for (int i = 0; i < 60; ++i) {
        Trial trial = random_trial(Kind::rising, random);
        const bool rising = i % 2 == 0;
        const double crossing = std::uniform_real_distribution<double>(trial.low + 1, trial.high - 1)(random);
        trial.tolerance = 0;
        trial.resolution = 0.05;
        trial.lower_reduces = rising;
        test.curve = [=](double v) { return trial.target * (rising ? v / crossing : crossing / std::max(v, 1e-3)); };
        const double result = search(trial);
        // Whole counts at a tenth of the transients: a step of one count is this far on the setpoint.
        const double slack = 0.1 + 20 * crossing / trial.target;
        EXPECT_NEAR(result, crossing, slack) << "trial " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Search, SearchProperties, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Fast" : "Normal"; });

}  // namespace
}  // namespace korvane
