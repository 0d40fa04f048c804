// Fits of the mass-time law to flight times with known errors, and to the simulated instrument's.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "korvane/calibration_fit.h"
#include "korvane/embedded_parts.h"
#include "support/raised.h"

namespace korvane {
namespace {

const std::vector<double> default_masses{118.0863,  322.0481,  622.0290,  922.0098,  1221.9906,
                                         1521.9715, 1821.9523, 2121.9332, 2421.9140, 2721.8948};

CalibrationObject law(double a, double t0_ns, double c = 0, double d = 0) {
    return make_square_law_calibration({.A = a, .B = t0_ns, .C = c, .D = d},
                                       VariantArray<std::int32_t>({0, 0, 0, 1, 1, 0, 0, 0}));
}

std::vector<CalibrantTime> times_of(const MassTimeCalibration& truth, std::mt19937& random, double error_ns,
                                    double stated_ns) {
    std::normal_distribution<double> normal;
    std::vector<CalibrantTime> times;
    for (const double mass : default_masses)
        times.push_back({mass, truth.time_from_mass(mass) + error_ns * normal(random), stated_ns, 1});
    return times;
}

// The law comes back within the errors that the fit states, whatever their stated size; a calibrant that is another
// peak is left out and named; the law before is told from the new one.
TEST(CalibrationFit, StatesItsErrorsAndLeavesOutWhatIsNoCalibrant) {
    for (const auto& [name, stated_over_true, wrong_peaks, most] :
         {std::tuple{"errors as stated", 1.0, 0U, 1.1},
          {"errors stated half as large as they are", 0.5, 0U, 1.6},
          {"an isotope peak and a stranger", 1.0, 2U, 1.15}}) {
        SCOPED_TRACE(name);
        const auto truth = law(4.5e-4, 30), before = law(4.5e-4 * (1 + 25e-6), 30);
        double squares = 0;
        int left_out = 0, better = 0;
        constexpr int fits = 100;
        for (int seed = 0; seed < fits; ++seed) {
            std::mt19937 random(static_cast<unsigned>(seed));
            auto times = times_of(*truth, random, 0.01, 0.01 * stated_over_true);
            for (std::size_t wrong = 0; wrong < wrong_peaks; ++wrong)
                times[3 * wrong + 1].time_ns =
                    truth->time_from_mass(times[3 * wrong + 1].mass * (1 + (wrong ? -40e-6 : 1.77e-3)));
            const CalibrationFit fit = fit_calibration(times, *before);
            better += fit.is_better();
            for (const CalibrantResidual& calibrant : fit.calibrants) {
                left_out += !calibrant.not_used.empty();
                const double mass = calibrant.measured.mass;
                const double error = (fit.calibration->mass_from_time(truth->time_from_mass(mass)) / mass - 1) * 1e6;
                squares += std::pow(error / calibrant.law_error_ppm, 2);
            }
        }
        EXPECT_EQ(better, fits);
        EXPECT_NEAR(left_out / static_cast<double>(fits), wrong_peaks, 0.3);
        const double root_mean_square = std::sqrt(squares / (fits * static_cast<double>(default_masses.size())));
        EXPECT_GT(root_mean_square, 0.9);
        EXPECT_LT(root_mean_square, most);
    }
}

// All calibrants lie within three of their errors, but the heavier six on a line of their own that misses the light
// ones by ten. The stated error holds what the list rounds the masses by as well.
TEST(CalibrationFit, SomeThatChanceHasPutInLineDoNotLeaveOutTheOthers) {
    const std::vector<CalibrantTime> errors{{158.964, -0.00565, 0.00713, 1},   {294.9388, 0.00591, 0.00673, 1},
                                            {566.8885, -0.00039, 0.00654, 1},  {838.8381, -0.00078, 0.00738, 1},
                                            {1110.7877, -0.02555, 0.00839, 1}, {1382.7373, -0.01416, 0.01001, 1},
                                            {1654.6869, -0.00487, 0.01216, 1}, {1926.6365, 0.00883, 0.01556, 1},
                                            {2198.5861, 0.02269, 0.02035, 1},  {2470.5358, 0.04084, 0.02578, 1}};
    const auto truth =
        make_square_law_calibration({.A = 4.5e-4, .B = 20}, VariantArray<std::int32_t>({0, 0, 0, 0, 0, 0, 0, 0}));
    auto times = errors;
    for (CalibrantTime& time : times) time.time_ns += truth->time_from_mass(time.mass);
    const CalibrationFit fit = fit_calibration(times, *truth);
    EXPECT_EQ(fit.used, times.size());
    const double rounding_ppm = 100 / std::sqrt(12) / times[0].mass;
    EXPECT_NEAR(fit.calibrants[0].error_ppm, std::hypot(2e6 * 0.00713 / (times[0].time_ns - 20), rounding_ppm), 1e-6);
}

TEST(CalibrationFit, TakesTheTermsThatTheCalibrantsCarry) {
    const auto terms_of = [](double c, double d) {
        int terms[3] = {};
        for (unsigned seed = 0; seed < 30; ++seed) {
            std::mt19937 random(seed);
            ++terms[fit_calibration(times_of(*law(4.5e-4, 30, c, d), random, 0.01, 0.01), *law(4.5e-4, 30)).terms];
        }
        return std::vector<int>(terms, terms + 3);
    };
    EXPECT_GE(terms_of(0, 0)[0], 26);
    EXPECT_GE(terms_of(4e-15, 0)[1], 26);
    EXPECT_GE(terms_of(4e-15, 8e-20)[2], 26);
}

TEST(CalibrationFit, RefusesWhatNoLawGoesThrough) {
    const auto refusal = [](const std::vector<CalibrantTime>& times) {
        return raised([&] { fit_calibration(times, *law(4.5e-4, 30)); });
    };
    const std::string number = "-1|fit_calibration|",
                      too_few = number + "a fit needs 3 calibrants with peaks; there are ";
    EXPECT_EQ(refusal({{118, 24000, 0.01, 2}, {322, 40000, 0.01, 2}, {622, 0, 0, 0}}), too_few + "2");
    EXPECT_EQ(refusal({{118, 24000, 0.01, 2}, {322, 24000, 0.01, 2}, {622, 24000, 0.01, 2}}),
              number + "all calibrants have the same flight time");
    // A single spectrum of a peak finder that states no errors.
    EXPECT_EQ(refusal({{118, 24000, 0, 1}, {322, 40000, 0, 1}, {622, 55000, 0, 1}}), too_few + "0");
}

}  // namespace
}  // namespace korvane
