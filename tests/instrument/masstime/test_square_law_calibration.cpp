// The mass-time calibration of the embedded instrument.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "instrument/masstime/square_law_calibration.h"

namespace korvane {
namespace {

struct Terms {
    std::vector<std::int32_t> flags;
    std::int32_t lower_bound;
};

VariantArray<std::int32_t> flags(std::vector<std::int32_t> elements, std::int32_t lower_bound = 0) {
    return VariantArray<std::int32_t>(std::move(elements), lower_bound);
}

/// The law written out term by term, in extended precision.
double mass_by_definition(const CalibrationCoefficients& law, const Terms& terms, double time_ns) {
    const long double root = static_cast<long double>(law.A) * (static_cast<long double>(time_ns) - law.B);
    const double higher[] = {law.C, law.D, law.E, law.F, law.G, law.H};
    long double mass = root * root;
    std::size_t next = 0;
    for (std::size_t i = 0; i < terms.flags.size(); ++i)
        if (terms.flags[i] == 1 && next < 6)
            mass +=
                higher[next++] * std::pow(static_cast<long double>(time_ns), terms.lower_bound + static_cast<int>(i));
    return static_cast<double>(mass);
}

/// A law of a real axis: terms that change the mass by parts per million, some of them falling.
CalibrationCoefficients draw_law(std::mt19937_64& random, const Terms& terms) {
    std::uniform_real_distribution<double> unit(-1, 1);
    CalibrationCoefficients law{4.5e-4 * (1 + 0.2 * unit(random)), 20 * (1 + unit(random))};
    double* higher[] = {&law.C, &law.D, &law.E, &law.F, &law.G, &law.H};
    std::size_t next = 0;
    for (std::size_t i = 0; i < terms.flags.size(); ++i)
        if (terms.flags[i] == 1 && next < 6)
            *higher[next++] = 0.05 * unit(random) / std::pow(1e5, terms.lower_bound + static_cast<int>(i));
    return law;
}

const std::vector<Terms>& term_choices() {
    static const std::vector<Terms> choices{{{}, 0},
                                            {{0, 0, 0, 0}, 0},
                                            {{1}, 0},
                                            {{0, 0, 0, 1}, 0},
                                            {{1, 0, 1}, 3},
                                            {{2, 1, -1, 1}, 1},  // only 1 means used
                                            {{1, 1, 1, 1, 1, 1}, 0},
                                            {{1, 1, 1, 1, 1, 1, 1, 1}, 1}};  // more terms than coefficients
    return choices;
}

TEST(SquareLawCalibration, EveryTermCountsAndTheInverseFindsTheTimeAgain) {
    std::mt19937_64 random(7);
    for (const auto& terms : term_choices()) {
        for (int repeat = 0; repeat < 20; ++repeat) {
            const auto law = draw_law(random, terms);
            const SquareLawCalibration calibration(law, flags(terms.flags, terms.lower_bound));
            std::vector<double> times_ns;
            for (double time_ns = 2000; time_ns < 160000; time_ns *= 1.13) times_ns.push_back(time_ns);
            const auto masses = calibration.masses_from_times(times_ns);
            const auto back_ns = calibration.times_from_masses(masses);
            for (std::size_t i = 0; i < times_ns.size(); ++i) {
                ASSERT_NEAR(masses[i] / mass_by_definition(law, terms, times_ns[i]), 1, 1e-13);
                ASSERT_NEAR(back_ns[i] / times_ns[i], 1, 1e-12) << masses[i];
                ASSERT_EQ(masses[i], calibration.mass_from_time(times_ns[i]));
                ASSERT_EQ(back_ns[i], calibration.time_from_mass(masses[i]));
            }
        }
    }
}

TEST(SquareLawCalibration, CoefficientsOfUnusedTermsChangeNothing) {
    CalibrationCoefficients law{4.5e-4, 20};
    const SquareLawCalibration plain(law);
    law.C = 1e9;
    law.H = -1e9;
    const SquareLawCalibration unused(law, flags({0, 0, 2}));
    EXPECT_EQ(unused.mass_from_time(50000), plain.mass_from_time(50000));
    EXPECT_EQ(unused.time_from_mass(922), plain.time_from_mass(922));
}

TEST(SquareLawCalibration, AMassWithoutAFlightTimeIsAnErrorThatNamesIt) {
    const SquareLawCalibration plain({4.5e-4, 20});
    const SquareLawCalibration no_slope({0, 20});
    // A falling cubic term: the axis turns before it reaches the mass.
    const SquareLawCalibration turning({4.5e-4, 20, -4e-13}, flags({0, 0, 0, 1}));
    const SquareLawCalibration constant({0, 0, 5}, flags({1}));
    struct Impossible {
        const SquareLawCalibration& calibration;
        double mass;
        std::string text;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& impossible :
         {Impossible{plain, -1.5, "-1.5"}, Impossible{plain, nan, "nan"},
          Impossible{plain, std::numeric_limits<double>::infinity(), "inf"}, Impossible{no_slope, 922, "922"},
          Impossible{turning, 5e6, "5e+06"}, Impossible{constant, 922.25, "922.25"}, Impossible{turning, nan, "nan"}}) {
        try {
            const double time_ns = impossible.calibration.time_from_mass(impossible.mass);
            FAIL() << impossible.text << " was given " << time_ns;
        } catch (const Error& error) {
            EXPECT_EQ(error.number(), error_number::invalid_call);
            EXPECT_NE(error.description().find(impossible.text), std::string::npos) << error.description();
        }
    }
    EXPECT_NEAR(turning.mass_from_time(turning.time_from_mass(3000)), 3000, 1e-8);
}

TEST(SquareLawCalibration, AUsedTermOfANegativeNumberIsRefused) {
    EXPECT_THROW(SquareLawCalibration({4.5e-4, 20}, flags({1, 0}, -1)), Error);
    EXPECT_NO_THROW(SquareLawCalibration({4.5e-4, 20}, flags({0, 1}, -1)));
}

TEST(SquareLawCalibration, ACloneGoesItsOwnWay) {
    SquareLawCalibration original({4.5e-4, 20, 1e-3}, flags({0, 1}), {1, 2, 3});
    const auto clone = original.clone();
    EXPECT_EQ(clone->settings(), original.settings());
    EXPECT_EQ(clone->use_flags().at(1), 1);
    const double mass = clone->mass_from_time(50000);
    original.set_coefficients({5e-4, 10, 0});
    original.set_settings({});
    EXPECT_EQ(clone->mass_from_time(50000), mass);
    EXPECT_EQ(clone->settings().CalPolynomialWeighting, 3);
    EXPECT_NE(original.mass_from_time(50000), mass);
}

}  // namespace
}  // namespace korvane
