// Mass lists and ranges, the slicer, and answers that depend on arguments.
#include <cmath>
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

}  // namespace
}  // namespace korvane
