#include "instrument/replay/axis_fit.h"

#include <gmock/gmock.h>

#include <random>

#include "recording_text.h"

namespace korvane {

namespace {

using replay::AxisFit;
using replay::fit_axis;
using replay::RecordingPlace;

const RecordingPlace place{"axis.mzML", "scan=7"};

double uniform(std::mt19937& random, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
}

/// An instrument's true axis, with further terms of up to a hundredth of its length each.
struct TrueAxis {
    double A, B, start_ns, interval_ns;
    std::size_t count;
    std::vector<std::pair<int, double>> terms;  // power, coefficient for t over the last time

    explicit TrueAxis(std::mt19937& random) {
        A = uniform(random, 2e-4, 8e-4);
        B = uniform(random, -200, 200);
        start_ns = uniform(random, 8000, 90000);
        interval_ns = std::vector<double>{1, 0.5, 0.25}[random() % 3];
        count = 300 + random() % 20000;
        const double last_ns = start_ns + static_cast<double>(count) * interval_ns;
        for (const int power : {0, 3, 4, 5, 6, 7, 8}) {
            if (terms.size() == 3 || random() % 3 != 0) continue;
            const double step = 2 * A * A * last_ns * interval_ns;
            terms.emplace_back(
                power, uniform(random, -0.01, 0.01) * static_cast<double>(count) * step * std::pow(last_ns, -power));
        }
    }

    double mass(double t) const {
        double sum = std::pow(A * (t - B), 2);
        for (const auto& [power, coefficient] : terms) sum += coefficient * std::pow(t, power);
        return sum;
    }
    std::vector<double> masses() const {
        return masses_at(start_ns, interval_ns, count, [this](double t) { return mass(t); });
    }
};

/// Leaves out runs of samples, short and long, between runs of at least `least`.
std::vector<std::size_t> kept_samples(std::mt19937& random, std::size_t count, std::size_t least) {
    std::vector<std::size_t> kept;
    for (std::size_t i = 0; i < count;) {
        for (std::size_t n = least + random() % 30; n > 0 && i < count; --n) kept.push_back(i++);
        i += static_cast<std::size_t>(std::exp(uniform(random, 0, 7)));
    }
    return kept;
}

/// Largest deviation of the fitted law from the true masses, in true steps, over all samples.
double worst_deviation(const TrueAxis& axis, const AxisFit& fit) {
    const std::vector<double> masses = axis.masses();
    double worst = 0;
    for (std::size_t i = 0; i + 1 < masses.size(); ++i) {
        const double fitted =
            fit.calibration->mass_from_time(fit.scale.origin_ns + static_cast<double>(i) * fit.scale.interval_ns);
        worst = std::max(worst, std::abs(fitted - masses[i]) / (masses[i + 1] - masses[i]));
    }
    return worst;
}

TEST(AxisFitting, MeetsRandomAxesWholeSparseAndWithKnownTimes) {
    std::mt19937 random(1);
    for (int trial = 0; trial < 8; ++trial) {
        const TrueAxis axis(random);
        const AxisFit whole = fit_axis(axis.masses(), {}, place);
        EXPECT_LT(worst_deviation(axis, whole), 0.01) << trial;
        EXPECT_EQ(whole.positions.steps.back(), static_cast<std::int64_t>(axis.count) - 1);

        const AxisFit timed = fit_axis(axis.masses(), {axis.start_ns, axis.interval_ns}, place);
        for (const double part : {0.0, 0.5, 1.0}) {
            const double t = axis.start_ns + part * static_cast<double>(axis.count - 1) * axis.interval_ns;
            EXPECT_NEAR(timed.calibration->time_from_mass(axis.mass(t)), t, 0.011 * axis.interval_ns);
        }

        const bool is_32_bit = trial % 2 == 1;
        const std::vector<std::size_t> kept = kept_samples(random, axis.count, is_32_bit ? 20 : 3);
        std::vector<double> masses;
        for (const std::size_t i : kept) {
            const double mass = axis.mass(axis.start_ns + static_cast<double>(i) * axis.interval_ns);
            masses.push_back(is_32_bit ? static_cast<float>(mass) : mass);
        }
        const AxisFit sparse = fit_axis(masses, {}, place);
        for (std::size_t k = 0; k < kept.size(); ++k)
            ASSERT_EQ(sparse.positions.steps[k], static_cast<std::int64_t>(kept[k] - kept[0])) << trial;
    }
}

TEST(AxisFitting, ReturnsTheSquareLawAtTheSamplingRateThatKeepsFlightTimesShort) {
    for (const auto& [steps_before, interval_ns] :
         {std::pair{140000, 1.0}, {160000, 0.5}, {320000, 0.25}, {900000, 0.25}}) {
        const auto masses = masses_at(steps_before, 1, 1000, [](double t) { return std::pow(3e-4 * t, 2); });
        const AxisFit fit = fit_axis(masses, {}, place);
        EXPECT_EQ(fit.scale.interval_ns, interval_ns);
        EXPECT_NEAR(fit.calibration->coefficients().A, 3e-4 / interval_ns, 1e-12);
        EXPECT_THAT(fit.calibration->use_flags().elements(), testing::Each(0));
    }
}

TEST(AxisFitting, GrantsTheRoundingOf32BitNumbersButNoMore) {
    auto masses = masses_at(143000, 0.25, 4000, [](double t) { return std::pow(4.5e-4 * t, 2); });
    const double step = masses[1] - masses[0];
    for (double& mass : masses) mass = static_cast<float>(mass);  // off by up to 0.017 of a step
    EXPECT_EQ(fit_axis(masses, {std::nullopt, 0.25}, place).positions.steps.back(), 3999);
    const auto is_met = [&] { return fit_axis(masses, {std::nullopt, 0.25}, place).positions.met(); };
    masses[0] += 1e-9;
    EXPECT_FALSE(is_met());
    masses[0] -= 1e-9;
    for (std::size_t i = 0; i < masses.size(); i += 2) masses[i] = static_cast<float>(masses[i] + 0.15 * step);
    EXPECT_FALSE(is_met());
}

TEST(AxisFitting, GivesTheNearestLawWithItsMisfitAndRefusesAxesThatItDoesNotTellApart) {
    std::mt19937 random(4);
    const auto even = masses_at(40000, 1, 3000, [](double t) { return std::pow(4.5e-4 * t, 2); });
    const double step = even[1] - even[0];
    std::vector<std::vector<double>> axes(3, even);
    for (double& mass : axes[0]) mass += uniform(random, -0.1, 0.1) * step;  // jitter
    axes[1][1500] += 0.03 * step;                                            // one sample off
    for (std::size_t i = 0; i < axes[2].size(); ++i)
        axes[2][i] = 300 + uniform(random, 0, 1) + 2.0 * static_cast<double>(i);
    for (const auto& [axis, misfit] : {std::pair{axes[0], 0.1}, {axes[1], 0.03}}) {
        const AxisFit fit = fit_axis(axis, {}, place);
        EXPECT_NEAR(fit.positions.worst_deviation_steps, misfit, 0.02);
        EXPECT_EQ(fit.positions.steps.back(), 2999);
    }
    EXPECT_THAT(raised([&] { fit_axis(axes[2], {}, place); }),
                testing::AllOf(testing::StartsWith("-904|RecordingReader|recording [axis.mzML], spectrum [scan=7]: "),
                               testing::HasSubstr("flight times would mean nothing")));
    EXPECT_THAT(raised([] { fit_axis(std::vector<double>{100, 101}, {}, place); }), testing::HasSubstr("too few"));
}

}  // namespace

}  // namespace korvane
