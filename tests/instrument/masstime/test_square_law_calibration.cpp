// The mass-time calibration of the embedded instrument.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "korvane/embedded_parts.h"
#include "support/raised.h"

namespace korvane {
namespace {

using Flags = VariantArray<std::int32_t>;

TEST(SquareLawCalibration, EveryTermCountsAndTheInverseFindsTheTimeAgain) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(-1, 1);
    const std::pair<Flags, std::vector<int>> used_powers[] = {
        {Flags{}, {}},
        {Flags(std::vector{0, 0, 0, 0}), {}},
        {Flags(std::vector{1, 0, 1}, 3), {3, 5}},
        {Flags(std::vector{2, 1, -1, 1}, 1), {2, 4}},  // only 1 means used
        {Flags(std::vector{1, 1, 1, 1, 1, 1}), {0, 1, 2, 3, 4, 5}},
        {Flags(std::vector{1, 1, 1, 1, 1, 1, 1, 1}, 1), {1, 2, 3, 4, 5, 6}}};  // more terms than coefficients
    for (const auto& [flags, powers] : used_powers)
        for (int repeat = 0; repeat < 20; ++repeat) {
            // A law of a real axis: terms that change the mass by parts per million, some of them falling.
            const double huge = 1e9;
            CalibrationCoefficients law{
                4.5e-4 * (1 + 0.2 * unit(random)), 20 * (1 + unit(random)), huge, huge, huge, huge, huge, huge};
            const auto coefficient = [&law](std::size_t term) -> double& {
                return law.*calibration_coefficients[2 + term].second;
            };
            for (std::size_t term = 0; term < powers.size(); ++term)
                coefficient(term) = 0.05 * unit(random) / std::pow(1e5, powers[term]);
            const CalibrationObject calibration = make_square_law_calibration(law, flags);
            std::vector<double> times_ns;
            for (double time_ns = 2000; time_ns < 160000; time_ns *= 1.13) times_ns.push_back(time_ns);
            const auto masses = calibration->masses_from_times(times_ns);
            const auto back_ns = calibration->times_from_masses(masses);
            for (std::size_t i = 0; i < times_ns.size(); ++i) {
                const long double time_ns = times_ns[i];
                long double mass = std::pow(law.A * (time_ns - law.B), 2.0L);
                for (std::size_t term = 0; term < powers.size(); ++term)
                    mass += coefficient(term) * std::pow(time_ns, powers[term]);
                ASSERT_NEAR(masses[i] / static_cast<double>(mass), 1, 1e-13);
                ASSERT_NEAR(back_ns[i] / times_ns[i], 1, 1e-12) << masses[i];
                ASSERT_EQ(masses[i], calibration->mass_from_time(times_ns[i]));
                ASSERT_EQ(back_ns[i], calibration->time_from_mass(masses[i]));
            }
        }
}

TEST(SquareLawCalibration, AMassWithoutAFlightTimeIsAnErrorThatNamesItAndSoIsATermOfANegativeNumber) {
    const CalibrationObject plain = make_square_law_calibration({4.5e-4, 20});
    const CalibrationObject no_slope = make_square_law_calibration({0, 20});
    // A falling cubic term: the axis turns before it reaches the mass.
    const CalibrationObject turning = make_square_law_calibration({4.5e-4, 20, -4e-13}, Flags(std::vector{0, 0, 0, 1}));
    const CalibrationObject constant = make_square_law_calibration({0, 0, 5}, Flags(std::vector{1}));
    const double nan = std::numeric_limits<double>::quiet_NaN(), infinite = std::numeric_limits<double>::infinity();
    const std::tuple<CalibrationObject, double, const char*> impossible[] = {
        {plain, -1.5, "[-1.5]"},  {plain, nan, "#QNAN"},       {plain, infinite, "#INF"},
        {no_slope, 922, "[922]"}, {turning, 5e6, "[5000000]"}, {constant, 922.25, "[922.25]"},
        {turning, nan, "#QNAN"}};
    for (const auto& [calibration, mass, text] : impossible) {
        const std::string error = raised([&] { calibration->time_from_mass(mass); });
        EXPECT_EQ(error.substr(0, 2), "5|");
        EXPECT_NE(error.find(text), std::string::npos) << error;
    }
    EXPECT_NEAR(turning->mass_from_time(turning->time_from_mass(3000)), 3000, 1e-8);
    EXPECT_THROW(make_square_law_calibration({4.5e-4, 20}, Flags(std::vector{1, 0}, -1)), Error);
    EXPECT_NO_THROW(make_square_law_calibration({4.5e-4, 20}, Flags(std::vector{0, 1}, -1)));
    const auto clone = make_square_law_calibration({4.5e-4, 20, 1e-3}, Flags(std::vector{0, 1}), {1, 2, 3})->clone();
    EXPECT_EQ(clone->settings(), (CalibrationSettings{1, 2, 3}));
    EXPECT_EQ(clone->use_flags().at(1), 1);
}

}  // namespace
}  // namespace korvane
