// The search that knows its noise, on responses with known truth.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "korvane/error.h"
#include "korvane/secant_search.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using End = SecantOutcome::End;

constexpr double mz = 400, target = 50000, entry = 90;
constexpr std::int32_t lens = SpectrumWorld::adjustable_setpoint, transients = SpectrumWorld::transients_setpoint;

/// Abundance at all transients by the lens value, 0 to 100.
using Response = double (*)(double);

/// A calibrant whose readings scatter: by `noise` of the abundance at a quarter of the transients.
struct NoisyWorld : SpectrumWorld {
    NoisyWorld(Response response, double noise, unsigned seed) : random(seed) {
        instrument().setpoint(lens).resolution = 0.1;
        instrument().setpoint(lens).value = entry;
        instrument().acquire = [this, response, noise](AcquiredSpectrum& spectrum, int) {
            const double part = instrument().setpoint(transients).value / 10000;
            used += part;
            const double error = noise * std::sqrt(0.25 / part);
            const double height = response(instrument().setpoint(lens).value) * part;
            set_peak(mz, std::max(0.0, height * (1 + error * normal(random))));
            peaks.uncertainty = PeakUncertainty{0, error * height, 0, 0, 0};
            fill(spectrum);
        };
    }

    std::mt19937 random;
    std::normal_distribution<double> normal;
    double used = 0;  // spectra of all transients
};

TEST(SecantSearch, IsAsFarOffAsItSaysAndTakesNoMoreTransientsThanTheNoiseAsksFor) {
    const Response responses[] = {[](double value) { return 120000 / (1 + std::exp((55 - value) / 6)); },
                                  [](double value) { return 200000 * std::exp((value - 100) / 25); },
                                  [](double value) { return 2500 * value; },
                                  [](double value) { return 70000 * (1 - std::exp(-value / 30)); }};
    int searches = 0, misses = 0;
    double squares = 0;
    for (const auto& [noise, most_used] : {std::pair{0.02, 0.8}, {0.04, 1.5}, {0.06, 2.5}}) {
        double used = 0;
        for (const Response response : responses)
            for (unsigned seed = 0; seed < 10; ++seed) {
                NoisyWorld world(response, noise, seed);
                const SecantOutcome outcome =
                    adjust_by_secant(world.platform(), {.setpoint = lens, .mz = mz, .target = target});
                EXPECT_EQ(outcome.end, End::within_tolerance) << noise << " " << seed;
                EXPECT_EQ(world.instrument().setpoint(lens).value, outcome.value);
                EXPECT_EQ(world.instrument().setpoint(transients).value, 10000);
                const double truth = response(outcome.value);
                squares += std::pow((truth - outcome.abundance) / outcome.standard_error, 2);
                misses += std::abs(truth / target - 1) > 0.05;
                used += world.used / 40;
                ++searches;
            }
        EXPECT_LT(used, most_used) << noise;
    }
    EXPECT_LE(misses, searches / 10) << "the tolerance is two standard errors";
    EXPECT_NEAR(std::sqrt(squares / searches), 1, 0.25);
}

TEST(SecantSearch, WithoutATargetInReachSaysWhyAndPutsBackWhatItFound) {
    for (const auto& [response, raising_adds, end] : std::initializer_list<std::tuple<Response, bool, End>>{
             {[](double) { return 0.0; }, true, End::no_signal},
             {[](double value) { return 300 * value; }, true, End::out_of_reach},
             {[](double value) { return 900 * (value + 100); }, true, End::out_of_reach},
             {[](double value) { return 45000 * std::exp((90 - value) / 20); }, true, End::wrong_direction},
             {[](double value) { return 300 * value; }, false, End::wrong_direction}}) {
        NoisyWorld world(response, 0.02, 1);
        const SecantOutcome outcome = adjust_by_secant(
            world.platform(),
            {.setpoint = lens, .mz = mz, .target = target, .lower_value_reduces_abundance = raising_adds});
        EXPECT_STREQ(name_of(outcome.end), name_of(end));
        EXPECT_EQ(outcome.value, entry);
        EXPECT_EQ(world.instrument().setpoint(lens).value, entry);
        EXPECT_EQ(world.instrument().setpoint(transients).value, 10000);
        EXPECT_LE(outcome.probes.size(), 12U) << name_of(end);
    }
}

}  // namespace
}  // namespace korvane
