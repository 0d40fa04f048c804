#include <cmath>
#include <limits>
#include <random>

#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

class Calibration : public TuneGlobalsTest {
protected:
    Calibration() {
        setpoint(119, 0);
        for (std::int32_t polarity : {0, 1}) calibrate(polarity, {});
        test.preference("DefaultCalib_UseOverrideValues", "No");
        test.limit("Calibration", "DefaultCalibACoef_4410", "0.44");
        test.raw_parameters(
            "<TOF><ManualTuneParameters><Calibration><DefaultCalibACoef_Override>0.11</DefaultCalibACoef_Override>"
            "<DefaultCalibBCoef_Override>1100</DefaultCalibBCoef_Override></Calibration></ManualTuneParameters></TOF>");
        test.instrument().dictionary = {{"CoefA", 0.33},
                                        {"CoefB", std::string("3300")},
                                        {"CalReserved1", 1.5},
                                        {"CalTraditionalWeighting", 7},
                                        {"CalPolynomialWeighting", -8}};
    }
    void calibrate(std::int32_t polarity, VariantArray<std::int32_t> flags) {
        test.instrument().calibrations[polarity] = std::make_shared<SquareLawCalibration>(
            CalibrationCoefficients{1e-4, 900, 1, 2, 3, 4, 5, 6}, std::move(flags));
    }
};

using Flags = std::vector<std::int32_t>;

TEST_F(Calibration, TermsAreScaledByTheirNumbersInTheOrderOfUse) {
    const CalibrationCoefficients us{0.5, 1.5, 2, 3, 4, 5, 6, 7};
    struct Row {
        VariantArray<std::int32_t> flags;
        CalibrationCoefficients ns;
    };
    const Row rows[] = {
        {{}, {0.0005, 1500, 2, 3, 4, 5, 6, 7}},
        {{Flags{0, 0, 2, -1}}, {0.0005, 1500, 2, 3, 4, 5, 6, 7}},
        {{Flags{1, 0, 1}}, {0.0005, 1500, 2, 3e-6, 4, 5, 6, 7}},
        {{Flags{1, 0, 1}, 3}, {0.0005, 1500, 2e-9, 3e-15, 4, 5, 6, 7}},
        {{Flags{1, 1, 1, 1, 1, 1, 1, 1}}, {0.0005, 1500, 2, 3e-3, 4e-6, 5e-9, 6e-12, 7e-15}},
    };
    auto made = globals();
    for (const Row& row : rows) {
        calibrate(0, row.flags);
        const auto ns = made.convert_coefficients_usec_to_nsec(us);
        const auto values = [](const CalibrationCoefficients& c) {
            return std::vector{c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H};
        };
        for (std::size_t i = 0; i < 8; ++i) EXPECT_DOUBLE_EQ(values(ns)[i], values(row.ns)[i]) << "ABCDEFGH"[i];
        const auto back = values(made.convert_coefficients_nsec_to_usec(ns));
        for (std::size_t i = 0; i < 8; ++i) EXPECT_DOUBLE_EQ(back[i], values(us)[i]) << "ABCDEFGH"[i];
    }
}

TEST_F(Calibration, ConvertedCoefficientsGiveTheSameMassOfTheSameFlight) {
    auto made = globals();
    calibrate(0, Flags{0, 0, 0, 1, 0, 1});
    const CalibrationCoefficients ns{1e-4, 900, 3e-16, -2e-26};
    const auto us = made.convert_coefficients_nsec_to_usec(ns);
    const VariantArray<std::int32_t> flags(Flags{0, 0, 0, 1, 0, 1});
    for (double time_ns : {2e4, 5e4, 3e5})
        EXPECT_NEAR(SquareLawCalibration(us, flags).mass_from_time(time_ns / 1000) /
                        SquareLawCalibration(ns, flags).mass_from_time(time_ns),
                    1, 1e-12);
}

TEST_F(Calibration, OverflowNamesTheCoefficient) {
    auto made = globals();
    calibrate(0, Flags{0, 1});
    const double huge = std::numeric_limits<double>::max();
    EXPECT_EQ(raised([&] { made.convert_coefficients_nsec_to_usec({huge}); }),
              "6|Korvane|Overflow: calibration coefficient A");
    EXPECT_EQ(raised([&] {
                  made.convert_coefficients_usec_to_nsec({1, huge});
              }),
              "6|Korvane|Overflow: calibration coefficient B");
    EXPECT_EQ(raised([&] {
                  made.convert_coefficients_nsec_to_usec({1, 1, huge});
              }),
              "6|Korvane|Overflow: calibration coefficient C");
    EXPECT_EQ(made.convert_coefficients_nsec_to_usec({1, 1, 1, huge}).D, huge) << "an unused term was scaled";
}

TEST_F(Calibration, WholeTraceOfAConversion) {
    auto made = globals();
    calibrate(0, VariantArray<std::int32_t>(Flags{1, 0, 1}, 2));
    made.convert_coefficients_usec_to_nsec({0.5, 1.5, 2, 3});
    const std::string outer = "convert_coefficients_usec_to_nsec: ", inner = "convert_coefficients_nsec_to_usec: ";
    EXPECT_EQ(test.trace().lines,
              (Lines{"> convert_coefficients_usec_to_nsec", outer + "pMassCoef.A (before conversion to nsec) = 0.5",
                     outer + "pMassCoef.B (before conversion to nsec) = 1.5", "> convert_coefficients_nsec_to_usec",
                     inner + "ValueUseFlags[lbound,ubound] = 2,4", inner + "Term 2 used", inner + "writing C coeff",
                     inner + "Term 4 used", inner + "writing D coeff", "< convert_coefficients_nsec_to_usec",
                     outer + "pMassCoef.A (after conversion to nsec) = 0.0005",
                     outer + "pMassCoef.B (after conversion to nsec) = 1500", "< convert_coefficients_usec_to_nsec"}));
}

TEST_F(Calibration, DefaultsComeFromOverrideModelOrDictionary) {
    struct Row {
        std::string override_text, model;
        double a, b;
    };
    const Row rows[] = {{"Yes", "K4410A", 0.11, 1100}, {"Yes", "K4430", 0.11, 1100},  {"yes", "K4430", 0.33, 3300},
                        {"No", "K4410", 0.44, 3300},   {"No", "K4410X9", 0.44, 3300}, {"No", "K441", 0.33, 3300},
                        {"", "xK4410", 0.33, 3300}};
    auto made = globals();
    for (const Row& row : rows) {
        test.preference("DefaultCalib_UseOverrideValues", row.override_text);
        test.instrument().model = row.model;
        const CalibrationCoefficients expected{row.a, row.b};
        EXPECT_EQ(made.getDefaultCalibCoefA_nsec(), row.a) << row.override_text << row.model;
        EXPECT_EQ(made.getDefaultCalibrationCoeffs_nsec(), expected) << row.override_text << row.model;
    }
}

TEST_F(Calibration, DefaultObjectIsTheLentOneChangedInPlaceForThePolarityOfNow) {
    auto made = globals();
    for (double polarity : {0.0, 1.0, -1.0}) {
        setpoint(119, polarity);
        const auto lent = made.GetCurrentCalibrationObjFromDD();
        EXPECT_EQ(lent, test.instrument().calibrations[polarity == 0 ? 0 : 1]);
        EXPECT_EQ(made.getDefaultMTObj_nsec(), lent);
        EXPECT_EQ(lent->coefficients(), (CalibrationCoefficients{0.33, 3300}));
        EXPECT_EQ(lent->settings(), (CalibrationSettings{2, 7, -8}));
    }
}

TEST_F(Calibration, NewCalibrationIsConvertedWholeAndStoredForThePolarityOfNow) {
    auto made = globals();
    for (const auto& [polarity, word] : {std::pair{0, "positive"}, std::pair{1, "negative"}}) {
        setpoint(119, polarity);
        calibrate(polarity, Flags{0, 1});
        test.instrument().journal.clear();
        made.SetNewCalibrationWithTheseAAndt0Values_usec(0.2, 1.25);
        EXPECT_EQ(test.instrument().journal, Lines{"store calibration " + std::to_string(polarity)});
        EXPECT_EQ(test.instrument().calibrations[polarity]->coefficients(),
                  (CalibrationCoefficients{0.0002, 1250, 0.001, 2, 3, 4, 5, 6}));
        EXPECT_TRUE(test.trace().contains(std::string("WriteThisCalibrationObjToDD: Saving new coefficients to ") +
                                          word + " mode calibrant"));
    }
    EXPECT_EQ(raised([&] { made.WriteThisCalibrationObjToDD(nullptr); }).substr(0, 3), "91|");
    test.instrument().calibrations.clear();
    EXPECT_EQ(raised([&] { made.GetCurrentCalibrationObjFromDD(); }).substr(0, 3), "91|");
}

TEST_F(Calibration, StatisticsAreThoseOfEveryColumnAndFailWhole) {
    auto made = globals();
    std::mt19937 random(3);
    std::normal_distribution<double> noise(5, 2);
    VariantMatrix<double> values(4000, 3);
    for (std::size_t row = 0; row < 4000; ++row) {
        values.at(row, 0) = static_cast<double>(row % 3 + 1);
        values.at(row, 1) = noise(random);
        values.at(row, 2) = 1e9 + static_cast<double>(row % 2);
    }
    VariantArray<double> means, deviations;
    made.CalculateMeanAndStdevForThisData(values, means, deviations);
    EXPECT_NEAR(means.at(0), 2, 1e-3);
    EXPECT_NEAR(means.at(1), 5, 0.1);
    EXPECT_NEAR(deviations.at(1), 2, 0.1);
    EXPECT_NEAR(deviations.at(2), 0.5, 1e-4) << "cancellation";
    VariantMatrix<double> three(3, 1), one(1, 1);
    for (std::size_t row = 0; row < 3; ++row) three.at(row, 0) = static_cast<double>(row + 1);
    made.CalculateMeanAndStdevForThisData(three, means, deviations);
    EXPECT_EQ(means.at(0), 2);
    EXPECT_EQ(deviations.at(0), 1);
    EXPECT_EQ(raised([&] { made.CalculateMeanAndStdevForThisData(one, means, deviations); }).substr(0, 3), "11|");
    EXPECT_EQ(means.at(0), 2) << "a failed call changed its results";
}

TEST_F(Calibration, MassErrorsArePpmPerMassOverTheSpectra) {
    auto made = globals();
    const auto calibration = std::make_shared<SquareLawCalibration>(CalibrationCoefficients{1e-4, 0});
    const VariantArray<double> expected(std::vector<double>{100, 400}, 1);
    const double ppm_given[2][3] = {{-1, 0, 1}, {10, 20, 30}};
    VariantMatrix<double> times(2, 3), raw;
    for (std::size_t mass = 0; mass < 2; ++mass)
        for (std::size_t spectrum = 0; spectrum < 3; ++spectrum)
            times.at(mass, spectrum) =
                calibration->time_from_mass(expected.elements()[mass] * (1 + ppm_given[mass][spectrum] * 1e-6));
    VariantArray<double> means, deviations;
    made.CalculateStdevOfMassAssignmentErrorForTheseMasses(expected, times, calibration, raw, means, deviations);
    EXPECT_NEAR(raw.at(1, 2), 30, 1e-6);
    EXPECT_NEAR(means.at(0), 0, 1e-6);
    EXPECT_NEAR(means.at(1), 20, 1e-6);
    EXPECT_NEAR(deviations.at(1), 10, 1e-6);
    const std::pair<VariantArray<double>, std::string> bad[] = {
        {std::vector<double>{100}, "9|"}, {std::vector<double>{100, 0}, "11|"}, {{}, "9|"}};
    for (const auto& [masses, number] : bad)
        EXPECT_TRUE(raised([&] {
                        made.CalculateStdevOfMassAssignmentErrorForTheseMasses(masses, times, calibration, raw, means,
                                                                               deviations);
                    }).starts_with(number));
    EXPECT_EQ(raw.columns(), 3u);
}

}  // namespace
}  // namespace korvane
