#include <gmock/gmock.h>

#include <cmath>
#include <limits>

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

std::vector<double> values(const CalibrationCoefficients& c) {
    return {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H};
}

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
        EXPECT_THAT(values(ns), testing::Pointwise(testing::DoubleEq(), values(row.ns)));
        EXPECT_THAT(values(made.convert_coefficients_nsec_to_usec(ns)),
                    testing::Pointwise(testing::DoubleEq(), values(us)));
    }
}

TEST_F(Calibration, OverflowNamesTheCoefficient) {
    auto made = globals();
    calibrate(0, Flags{0, 1});
    const double huge = std::numeric_limits<double>::max();
    for (const auto& [given, to_ns, name] : {std::tuple{CalibrationCoefficients{huge}, false, 'A'},
                                             {CalibrationCoefficients{1, huge}, true, 'B'},
                                             {CalibrationCoefficients{1, 1, huge}, false, 'C'}})
        EXPECT_EQ(raised([&, given = given, to_ns = to_ns] { made.convert_coefficients_nsec_to_usec(given, to_ns); }),
                  std::string("6|Korvane|Overflow: calibration coefficient ") + name);
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
    auto made = globals();
    for (const auto& [override_text, model, a, b] : {std::tuple{"Yes", "K4410A", 0.11, 1100.0},
                                                     {"Yes", "K4430", 0.11, 1100.0},
                                                     {"yes", "K4430", 0.33, 3300.0},
                                                     {"No", "K4410X9", 0.44, 3300.0},
                                                     {"No", "K441", 0.33, 3300.0},
                                                     {"", "xK4410", 0.33, 3300.0}}) {
        test.preference("DefaultCalib_UseOverrideValues", override_text);
        test.instrument().model = model;
        EXPECT_EQ(made.getDefaultCalibCoefA_nsec(), a) << override_text << model;
        EXPECT_EQ(made.getDefaultCalibrationCoeffs_nsec(), (CalibrationCoefficients{a, b})) << override_text << model;
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
    VariantMatrix<double> values(3, 2), one(1, 1);
    for (std::size_t row = 0; row < 3; ++row) {
        values.at(row, 0) = static_cast<double>(row + 1);
        values.at(row, 1) = 1e9 + static_cast<double>(row % 2);
    }
    VariantArray<double> means, deviations;
    made.CalculateMeanAndStdevForThisData(values, means, deviations);
    EXPECT_EQ(means.at(0), 2);
    EXPECT_EQ(deviations.at(0), 1);
    EXPECT_NEAR(deviations.at(1), std::sqrt(1.0 / 3), 1e-7) << "cancellation";
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
