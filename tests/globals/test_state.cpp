// Mass lists and ranges, the slicer, answers that depend on arguments; the calibration and statistics.
#include <cmath>
#include <limits>
#include <sstream>

#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

using testing::StartsWith;

class State : public TuneGlobalsTest {
protected:
    State() {
        for (const int index : {18, 117, 119, 128, 149, 150}) setpoint(index, 0);
        test.raw_parameters(
            "<TOF><ManualTuneParameters><IndexedSlicer><NumberOfPositions>6</NumberOfPositions>"
            "<HighResolutionFirstPosition>4</HighResolutionFirstPosition></IndexedSlicer></ManualTuneParameters></TOF>"
            "<Mode><Tune polarity='pos' source='ESI'><InitialAutotuneStartingSetpointValues/></Tune></Mode>");
        test.limit("Limits", "InitTOFTune_MaxRunTimeOnSlicerPos_hrs", "100");
        test.preference("SlicerLifeTime_SimulateOverLimit", "No");
    }
    void mass_list(const std::string& masses) {
        std::string xml =
            "<QTOF_MassListConfiguration><Configuration IonSource='ESI' IonPolarity='Positive'><MassList>";
        std::istringstream in(masses);
        for (std::string mass; in >> mass;) xml += "<mass>" + mass + "</mass>";
        write_text(test.base() / "MassLists/default_calibration_mass_list.xml",
                   xml + "</MassList></Configuration></QTOF_MassListConfiguration>");
    }
    void slicer(int position, const std::vector<double>& hours) {
        setpoint(170, position, "SlicerPosition").type = 3;
        for (std::size_t i = 0; i < hours.size(); ++i)
            test.instrument().dictionary["SlicerPos[" + std::to_string(i + 1) + "].Hours"] = hours[i];
    }
};

TEST_F(State, AnswersThatDependOnArgumentsAreExact) {
    for (const std::string mass : {"4000", "4000.5"}) {
        write_text(test.base() / "TuneParams.xml",
                   "<QTOFTuneParams><Misc><QuadMaxMass>" + mass + "</QuadMaxMass></Misc></QTOFTuneParams>");
        EXPECT_EQ(static_cast<int>(globals().QuadType()), mass == "4000");
    }
    auto made = globals();
    const auto adjustable = [&](VariantArray<double> masses) {
        return made.ThisIsAnAbundanceAdjustableRamp(0, masses);
    };
    EXPECT_TRUE(adjustable(std::vector<double>{1}));
    EXPECT_FALSE(adjustable(std::vector<double>{1, 2}) || adjustable(std::vector<double>{}) ||
                 adjustable({std::vector<double>{1}, 1}));
    EXPECT_THAT(raised([&] { adjustable({}); }), StartsWith("13|"));
    test.instrument().calibrations[0] =
        make_square_law_calibration(CalibrationCoefficients{1, 2500 - std::sqrt(1700.0)});
    EXPECT_EQ(made.GetMaxSpectrumTime_usec(), 2) << "halves go to the even neighbour";
}

TEST_F(State, MassRangeIncludesItsEndsAndTheHighOneIsAlsoCutByItsSetpoint) {
    auto made = globals();
    setpoint(300, 50);
    for (const auto& [range, extended, highest] :
         {std::tuple{0, 100, 1700}, {1, 100, 3200}, {2, 12000, 12000}, {2, 30000, 20000}}) {
        setpoint(128, range);
        setpoint(135, extended);
        for (const double mass : {50.0, 1.0 * highest}) EXPECT_TRUE(made.IsThisMassInCurrentMassRange(mass)) << mass;
        for (const double mass : {49.999, highest + 0.001, std::nan("")})
            EXPECT_FALSE(made.IsThisMassInCurrentMassRange(mass)) << mass << " in range " << range;
    }
}

TEST_F(State, DefaultMassListIsCutToItsFirstMassesNotFiltered) {
    auto made = globals();
    const std::pair<std::string, std::vector<double>> rows[] = {
        {"100 1699.999 1700 2000", {100, 1699.999}}, {"2000 100 200", {2000, 100}}, {"100 1700 200", {100, 1700}}};
    for (const auto& [file, expected] : rows) {
        mass_list(file);
        const auto list = made.GetDefaultMassList("ESI", "Positive");
        EXPECT_EQ(std::vector<double>(list.elements().begin(), list.elements().end()), expected) << file;
        EXPECT_EQ(list.lower_bound(), 0);
    }
    const auto error = [&](const char* source) { return raised([&] { made.GetDefaultMassList(source, "Positive"); }); };
    mass_list("1700 2000");
    const std::string text = "Subscript out of range: no mass below 1700 in " +
                             (test.base() / "MassLists" / "default_calibration_mass_list.xml").string();
    EXPECT_EQ(error("ESI"), "9|Korvane|" + text);
    EXPECT_EQ(made.ErrorMsgString(), "GetDefaultMassList.Err.number[9], err.Description[" + text + "]");
    EXPECT_EQ(error("APCI"), "-1|CalMassList|Mass list for source APCI and Positive polarity not found");
    std::string many = "1";
    for (int i = 0; i < 32767; ++i) many += " 1";
    mass_list(many);
    EXPECT_THAT(error("ESI"), StartsWith("6|"));
}

TEST_F(State, LargestMassStartsFromZeroAndTracesEveryMass) {
    auto made = globals();
    EXPECT_EQ(made.LargestMassInMassList(std::vector<double>{-5, -1}), 0);
    test.trace().lines.clear();
    EXPECT_EQ(made.LargestMassInMassList(std::vector<double>{1.5, 3, 2}), 3);
    const std::string name = "LargestMassInMassList: ";
    EXPECT_EQ(test.trace().lines,
              (Lines{"> LargestMassInMassList", name + "upper = 2", name + "mass 0: 1.5", name + "mass 1: 3",
                     name + "mass 2: 2", name + "Largest mass = 3", "< LargestMassInMassList"}));
    EXPECT_THAT(raised([&] { made.LargestMassInMassList({std::vector<double>{1, 2}, 1}); }), StartsWith("9|"));
}

TEST_F(State, SlicerMovesToTheNextCleanPositionOfItsResolution) {
    // Hours of positions 1 to 6, of which 4 to 6 are high resolution; from where; to where.
    const std::tuple<std::vector<double>, int, double> rows[] = {
        {{0, 0, 0, 0, 0, 0}, 1, 2},        {{0, 0, 0, 0, 0, 0}, 3, 1},     {{0, 0, 0, 0, 0, 0}, 6, 4},
        {{0, 100, 99.9, 0, 0, 0}, 1, 3},   {{0, 100, 100, 0, 0, 0}, 1, 1}, {{500, 100, 101, 0, 0, 0}, 1, -1},
        {{0, 0, 0, 200, 200, 200}, 5, -1}, {{0, 0, 0, 200, 0, 200}, 6, 5},
    };
    for (const auto& [hours, from, expected] : rows) {
        slicer(from, hours);
        auto made = globals();
        EXPECT_EQ(made.IsSlicerPosHighResolution(), from >= 4);
        EXPECT_EQ(made.SeekNextAvailableCleanSlicerPosForTune(), expected) << from;
        EXPECT_EQ(test.instrument().setpoints[170].value, expected < 0 ? from : expected);
        EXPECT_EQ(made.tune_log_path().empty(), expected > 0) << "no warning where nothing is clean";
    }
    EXPECT_EQ(test.log_lines("TuneLog_").back(),
              "AUTOTUNE LOG: WARNING: no slicer position is left whose running hours are below the limit");

    slicer(1, {0, 0, 0, 0, 0, 0});
    auto made = globals();
    for (const auto& [rehearsed, expected] : {std::pair{"Yes", -1}, {"yes", 2}}) {
        test.preference("SlicerLifeTime_SimulateOverLimit", rehearsed);
        EXPECT_EQ(made.SeekNextAvailableCleanSlicerPosForTune(), expected);
    }
    const auto error = [&] { return raised([&] { made.SeekNextAvailableCleanSlicerPosForTune(); }); };
    const std::string own = "-1|SeekNextAvailableCleanSlicerPosForTune|slicer position[";
    test.instrument().setpoints[170].upper = 2;
    EXPECT_EQ(error(), own + "3] was not taken; position[2]");
    test.instrument().dictionary.erase("SlicerPos[3].Hours");
    EXPECT_THAT(error(), StartsWith("5|"));
    for (const int position : {0, 7}) {
        setpoint(170, position);
        EXPECT_EQ(error(), own + std::to_string(position) + "] is not one of [6]");
    }
}

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
        test.instrument().calibrations[polarity] =
            make_square_law_calibration(CalibrationCoefficients{1e-4, 900, 1, 2, 3, 4, 5, 6}, std::move(flags));
    }
};

using Flags = std::vector<std::int32_t>;

std::vector<double> values(const CalibrationCoefficients& c) {
    return {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H};
}

TEST_F(Calibration, TermsAreScaledByTheirNumbersInTheOrderOfUse) {
    const CalibrationCoefficients us{0.5, 1.5, 2, 3, 4, 5, 6, 7};
    const std::pair<VariantArray<std::int32_t>, CalibrationCoefficients> rows[] = {
        {{}, {0.0005, 1500, 2, 3, 4, 5, 6, 7}},
        {{Flags{0, 0, 2, -1}}, {0.0005, 1500, 2, 3, 4, 5, 6, 7}},
        {{Flags{1, 1, 1, 1, 1, 1, 1, 1}}, {0.0005, 1500, 2, 3e-3, 4e-6, 5e-9, 6e-12, 7e-15}},
        {{Flags{1, 0, 1}, 3}, {0.0005, 1500, 2e-9, 3e-15, 4, 5, 6, 7}},
    };
    auto made = globals();
    for (const auto& [flags, scaled] : rows) {
        calibrate(0, flags);
        test.trace().lines.clear();
        const auto ns = made.convert_coefficients_usec_to_nsec(us);
        EXPECT_THAT(values(ns), testing::Pointwise(testing::DoubleEq(), values(scaled)));
        const Lines traced = test.trace().lines;
        EXPECT_THAT(values(made.convert_coefficients_nsec_to_usec(ns)),
                    testing::Pointwise(testing::DoubleEq(), values(us)));
        if (&flags != &rows[3].first) continue;
        const std::string outer = "convert_coefficients_usec_to_nsec: ", inner = "convert_coefficients_nsec_to_usec: ";
        EXPECT_EQ(
            traced,
            (Lines{"> convert_coefficients_usec_to_nsec", outer + "pMassCoef.A (before conversion to nsec) = 0.5",
                   outer + "pMassCoef.B (before conversion to nsec) = 1.5", "> convert_coefficients_nsec_to_usec",
                   inner + "ValueUseFlags[lbound,ubound] = 3,5", inner + "Term 3 used", inner + "writing C coeff",
                   inner + "Term 5 used", inner + "writing D coeff", "< convert_coefficients_nsec_to_usec",
                   outer + "pMassCoef.A (after conversion to nsec) = 0.0005",
                   outer + "pMassCoef.B (after conversion to nsec) = 1500", "< convert_coefficients_usec_to_nsec"}));
    }
    calibrate(0, Flags{0, 1});
    const double huge = std::numeric_limits<double>::max();
    for (const auto& [given, to_ns, name] : {std::tuple{CalibrationCoefficients{huge}, false, 'A'},
                                             {CalibrationCoefficients{1, huge}, true, 'B'},
                                             {CalibrationCoefficients{1, 1, huge}, false, 'C'}})
        EXPECT_EQ(raised([&, given = given, to_ns = to_ns] { made.convert_coefficients_nsec_to_usec(given, to_ns); }),
                  std::string("6|Korvane|Overflow: calibration coefficient ") + name);
    EXPECT_EQ(made.convert_coefficients_nsec_to_usec({1, 1, 1, huge}).D, huge) << "an unused term was scaled";
}

TEST_F(Calibration, DefaultsComeFromOverrideModelOrDictionaryIntoTheLentObjectOfThePolarityOfNow) {
    auto made = globals();
    for (const auto& [override_text, model, polarity, a, b] : {std::tuple{"Yes", "K4410A", 0.0, 0.11, 1100.0},
                                                               {"Yes", "K4430", 0.0, 0.11, 1100.0},
                                                               {"yes", "K4430", 1.0, 0.33, 3300.0},
                                                               {"No", "K4410X9", -1.0, 0.44, 3300.0},
                                                               {"No", "K441", 0.0, 0.33, 3300.0},
                                                               {"", "xK4410", 0.0, 0.33, 3300.0}}) {
        test.preference("DefaultCalib_UseOverrideValues", override_text);
        test.instrument().model = model;
        setpoint(119, polarity);
        EXPECT_EQ(made.getDefaultCalibCoefA_nsec(), a) << override_text << model;
        const auto lent = made.GetCurrentCalibrationObjFromDD();
        EXPECT_EQ(lent, test.instrument().calibrations[polarity == 0 ? 0 : 1]);
        EXPECT_EQ(made.getDefaultMTObj_nsec(), lent);
        EXPECT_EQ(lent->coefficients(), (CalibrationCoefficients{a, b}));
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
    EXPECT_THAT(raised([&] { made.WriteThisCalibrationObjToDD(nullptr); }), StartsWith("91|"));
    test.instrument().calibrations.clear();
    EXPECT_THAT(raised([&] { made.GetCurrentCalibrationObjFromDD(); }), StartsWith("91|"));
}

TEST_F(Calibration, StatisticsAreThoseOfEverySeries) {
    auto made = globals();
    const auto law = make_square_law_calibration(CalibrationCoefficients{1e-4, 0});
    const VariantArray<double> expected(std::vector<double>{100, 400}, 1);
    const double ppm[2][3] = {{-1, 0, 1}, {1e4, 1e4 + 20, 1e4 + 10}};
    VariantMatrix<double> times(2, 3), transposed(3, 2), raw, one(1, 1);
    for (std::size_t mass = 0; mass < 2; ++mass)
        for (std::size_t spectrum = 0; spectrum < 3; ++spectrum) {
            times.at(mass, spectrum) =
                law->time_from_mass(expected.elements()[mass] * (1 + ppm[mass][spectrum] * 1e-6));
            transposed.at(spectrum, mass) = ppm[mass][spectrum];
        }
    VariantArray<double> means, deviations;
    const auto assess = [&](const VariantArray<double>& masses) {
        return raised([&] {
            made.CalculateStdevOfMassAssignmentErrorForTheseMasses(masses, times, law, raw, means, deviations);
        });
    };
    for (const bool of_masses : {false, true}) {
        means = deviations = {};
        of_masses ? (void)assess(expected) : made.CalculateMeanAndStdevForThisData(transposed, means, deviations);
        for (int mass = 0; mass < 2; ++mass) {
            EXPECT_NEAR(means.at(mass), mass ? 1e4 + 10 : 0, 1e-6);
            EXPECT_NEAR(deviations.at(mass), mass ? 10 : 1, 1e-6);
        }
    }
    EXPECT_NEAR(raw.at(1, 2), 1e4 + 10, 1e-6);
    one.at(0, 0) = 5;
    EXPECT_THAT(raised([&] { made.CalculateMeanAndStdevForThisData(one, means, deviations); }), StartsWith("11|"));
    EXPECT_EQ(means.at(0), 5) << "what stood before the division by zero is lost";
    EXPECT_EQ(deviations.at(0), 0);
    EXPECT_THAT(assess(std::vector<double>{100}), StartsWith("9|"));
    EXPECT_THAT(assess(std::vector<double>{100, 0}), StartsWith("11|"));
    EXPECT_THAT(assess({}), StartsWith("9|"));
}

}  // namespace
}  // namespace korvane
