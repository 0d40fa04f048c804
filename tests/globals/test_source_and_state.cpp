#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

class SourceAndState : public TuneGlobalsTest {
protected:
    SourceAndState() {
        for (std::int32_t index : {117, 119, 18, 150, 149, 128}) setpoint(index, 0);
        test.raw_parameters(
            "<Misc><QuadMaxMass>4000</QuadMaxMass></Misc><TOF><ManualTuneParameters><IndexedSlicer>"
            "<NumberOfPositions>6</NumberOfPositions><HighResolutionFirstPosition>4</HighResolutionFirstPosition>"
            "</IndexedSlicer></ManualTuneParameters></TOF>");
        test.limit("Limits", "InitTOFTune_MaxRunTimeOnSlicerPos_hrs", "100");
        test.preference("SlicerLifeTime_SimulateOverLimit", "No");
    }
    void mass_list(const std::string& masses) {
        std::string xml =
            "<QTOF_MassListConfiguration><Configuration IonSource='ESI' IonPolarity='Positive'><MassList>";
        for (std::istringstream in(masses); std::getline(in, one_mass_, ' ');) xml += "<mass>" + one_mass_ + "</mass>";
        write_text(test.base() / "MassLists/default_calibration_mass_list.xml",
                   xml + "</MassList></Configuration></QTOF_MassListConfiguration>");
    }

private:
    std::string one_mass_;
};

TEST_F(SourceAndState, CapillaryVoltageGoesByTheCodeAndVaporizerByTheName) {
    struct Row {
        double code;
        std::string name;
        std::int32_t capillary, vaporizer;
    };
    const Row rows[] = {{5, "ESI", 104, 124},       {9, "ESI", 165, 124},   {6, "nanoESI", 106, 124},
                        {4, "Multimode", 105, 124}, {7, "APCI", 121, 123},  {8, "APPI", 107, 123},
                        {10, "GC-APCI", 121, 124},  {3, "MALDI", 104, 124}, {12, "", 104, 124},
                        {-1, "", 104, 124}};
    auto made = globals();
    for (const Row& row : rows) {
        setpoint(117, row.code);
        test.trace().lines.clear();
        EXPECT_EQ(made.GetSourceTypeStr(), row.name) << row.code;
        EXPECT_EQ(made.GetSourceSpecificVCapSetpointIndex(), row.capillary) << row.code;
        EXPECT_EQ(made.GetSourceSpecificVaporizerSetpointIndex(), row.vaporizer) << row.code;
        const std::string code = std::to_string(static_cast<int>(row.code));
        EXPECT_EQ(test.trace().contains("GetSourceSpecificVCapSetpointIndex: Unrecognized Source Type selected [" +
                                        code + "]; defaulting VCap actual to ESI VCap"),
                  row.code == 3 || row.name.empty());
        const bool has_own = row.name == "APCI" || row.name == "APPI" || row.name == "Multimode";
        EXPECT_EQ(
            test.trace().contains("GetSourceSpecificVaporizerSetpointIndex: Vaporizer-less Source Type selected [" +
                                  row.name + "]; defaulting to MultiMode Vaporizer"),
            !has_own);
    }
}

TEST_F(SourceAndState, OnlyZeroIsPositive) {
    auto made = globals();
    for (double value : {0.0, 1.0, -1.0, 0.25}) {
        setpoint(119, value);
        const bool positive = value == 0;
        EXPECT_EQ(made.GetPolarityStr(), positive ? "Positive" : "Negative");
        EXPECT_EQ(made.GetPolarity3LetterAbbreviation(), positive ? "pos" : "neg");
        EXPECT_EQ(made.GetPolaritySpecificCoronaSetpointIndex(), positive ? 125 : 126);
        EXPECT_EQ(made.GetPolarityTuneSetpointValue() == PolaritySetpoint::Positive, positive);
    }
}

TEST_F(SourceAndState, MassListTypeFoldsTheEsiFamilyExactly) {
    auto made = globals();
    const std::pair<std::string, std::string> rows[] = {
        {"Unknown", "ESI"}, {"Dual SGF ESI", "ESI"}, {"Dual nanoESI", "nanoESI"}, {"esi", "esi"}, {"", ""}};
    for (const auto& [given, expected] : rows) EXPECT_EQ(made.GetMassListTypeFromSourceTypeString(given), expected);
}

TEST_F(SourceAndState, TransientsSetpointAndQuadrupoleTypeDependOnExactValues) {
    auto made = globals();
    for (const auto& [rate, index] : {std::pair{1, 127}, {2, 160}, {3, 161}, {0, 127}, {4, 127}}) {
        setpoint(18, rate);
        test.trace().lines.clear();
        EXPECT_EQ(made.GetNumTransTuneSPForCurrentSamplingRate(), index);
        EXPECT_EQ(test.trace().contains(
                      "GetNumTransTuneSPForCurrentSamplingRate: Error: invalid Sample Rate; defaulting to 1GHz"),
                  rate == 0 || rate == 4);
    }
    for (const auto& [mass, type] : {std::pair{"4000", 1}, {"8000", 2}, {"4000.5", 0}, {"3000", 0}}) {
        write_text(test.base() / "TuneParams.xml", "<QTOFTuneParams><Misc><QuadMaxMass>" + std::string(mass) +
                                                       "</QuadMaxMass></Misc></QTOFTuneParams>");
        EXPECT_EQ(static_cast<int>(globals().QuadType()), type) << mass;
    }
}

TEST_F(SourceAndState, StateTextOfEveryRateGainResolutionTubeAndRange) {
    struct Row {
        int rate, gain, resolution;
        bool tube;
        int range;
        std::string text;
    };
    const Row rows[] = {
        {1, 0, 1, false, 0, "Minimum Storage Size (1 GHz) in 1700 m/z Mass Range"},
        {1, 3, 0, true, 2, "Minimum Storage Size (1 GHz) in 20,000 m/z Mass Range"},
        {2, 0, 1, false, 1, "2 GHz, Extended Dynamic Range Disabled in 3200 m/z Mass Range"},
        {2, 0, 0, true, 2, "2 GHz, Extended Mass Range in 10,000 m/z Mass Range"},
        {2, 0, 0, false, 2, "2 GHz, Extended Dynamic Range Disabled in 20,000 m/z Mass Range"},
        {2, 1, 0, true, 0, "2 GHz, High Gain in 1700 m/z Mass Range"},
        {2, 2, 0, true, 1, "2 GHz, Low Gain in 3200 m/z Mass Range"},
        {2, 3, 0, true, 2, "Extended Dynamic Range (2 GHz) in 10,000 m/z Mass Range"},
        {2, 4, 0, true, 5, "2 GHz in 10,000 m/z Mass Range"},
        {3, 1, 1, false, 1, "4 GHz, High Resolution in 3200 m/z Mass Range"},
        {3, 3, -1, true, 2, "4 GHz, High Resolution in 20,000 m/z Mass Range"},
        {3, 0, 0, true, 0, "4 GHz in 1700 m/z Mass Range"},
        {0, 0, 1, false, 0, " in 1700 m/z Mass Range"},
        {7, 3, 1, true, -1, " in 20,000 m/z Mass Range"},
    };
    auto made = globals();
    for (const Row& row : rows) {
        setpoint(18, row.rate);
        setpoint(149, row.gain);
        setpoint(150, row.resolution);
        setpoint(128, row.range);
        test.instrument().flight_tube_160cm = row.tube;
        EXPECT_EQ(made.GetCurrentInstrumentStateAsString(), row.text);
        const auto before = row.text.rfind(" in ") + 4;
        std::string range = row.text.substr(before, row.text.find(" m/z") - before);
        range.erase(std::remove(range.begin(), range.end(), ','), range.end());
        EXPECT_EQ(made.GetMaxMassForCurrentMassRange(), std::stod(range)) << "text and number disagree: " << row.text;
    }
}

TEST_F(SourceAndState, MassRangeIncludesItsEndsAndTheHighOneIsAlsoCutByItsSetpoint) {
    auto made = globals();
    setpoint(300, 50);
    struct Row {
        int range;
        double highest_extended, highest;
    };
    for (const Row& row : {Row{0, 100, 1700}, Row{1, 100, 3200}, Row{2, 12000, 12000}, Row{2, 30000, 20000}}) {
        setpoint(128, row.range);
        setpoint(135, row.highest_extended);
        for (const auto& [mass, inside] : {std::pair{50.0, true},
                                           {49.999, false},
                                           {row.highest, true},
                                           {row.highest + 0.001, false},
                                           {std::numeric_limits<double>::quiet_NaN(), false}})
            EXPECT_EQ(made.IsThisMassInCurrentMassRange(mass), inside) << mass << " in range " << row.range;
    }
}

TEST_F(SourceAndState, DefaultMassListIsCutToItsFirstMassesNotFiltered) {
    auto made = globals();
    const std::pair<std::string, std::vector<double>> rows[] = {
        {"100 1699.999 1700 2000", {100, 1699.999}},
        {"2000 100 200", {2000, 100}},
        {"100 200", {100, 200}},
        {"100 1700 200", {100, 1700}},
    };
    for (const auto& [file, expected] : rows) {
        mass_list(file);
        const auto list = made.GetDefaultMassList("ESI", "Positive");
        EXPECT_EQ(std::vector<double>(list.elements().begin(), list.elements().end()), expected) << file;
        EXPECT_EQ(list.lower_bound(), 0);
    }
    mass_list("1700 2000");
    const std::string path = (test.base() / "MassLists" / "default_calibration_mass_list.xml").string();
    const std::string text = "Subscript out of range: no mass below 1700 in " + path;
    EXPECT_EQ(raised([&] { made.GetDefaultMassList("ESI", "Positive"); }), "9|Korvane|" + text);
    EXPECT_TRUE(
        test.trace().contains("GetDefaultMassList: GetDefaultMassList.Err.number[9], err.Description[" + text + "]"));
    EXPECT_EQ(raised([&] { made.GetDefaultMassList("APCI", "Positive"); }),
              "-1|CalMassList|Mass list for source APCI and Positive polarity not found");
    std::string many;
    for (int i = 0; i < 32768; ++i) many += "1 ";
    mass_list(many + "1");
    EXPECT_EQ(raised([&] { made.GetDefaultMassList("ESI", "Positive"); }).substr(0, 2), "6|");
}

TEST_F(SourceAndState, LargestMassStartsFromZeroAndTracesEveryMass) {
    auto made = globals();
    EXPECT_EQ(made.LargestMassInMassList(std::vector<double>{-5, -1}), 0);
    test.trace().lines.clear();
    EXPECT_EQ(made.LargestMassInMassList(std::vector<double>{1.5, 3, 2}), 3);
    const std::string name = "LargestMassInMassList: ";
    EXPECT_EQ(test.trace().lines,
              (Lines{"> LargestMassInMassList", name + "upper = 2", name + "mass 0: 1.5", name + "mass 1: 3",
                     name + "mass 2: 2", name + "Largest mass = 3", "< LargestMassInMassList"}));
    EXPECT_EQ(raised([&] { made.LargestMassInMassList({}); }).substr(0, 3), "13|");
    EXPECT_EQ(raised([&] { made.LargestMassInMassList({std::vector<double>{1, 2}, 1}); }).substr(0, 2), "9|");
}

TEST_F(SourceAndState, SlicerMovesToTheNextCleanPositionOfItsResolution) {
    struct Row {
        std::vector<double> hours;  // of positions 1 to 6; 4 to 6 are high resolution
        int from;
        double expected;
    };
    const Row rows[] = {
        {{0, 0, 0, 0, 0, 0}, 1, 2},        {{0, 0, 0, 0, 0, 0}, 3, 1},     {{0, 0, 0, 0, 0, 0}, 6, 4},
        {{0, 100, 99.9, 0, 0, 0}, 1, 3},   {{0, 100, 100, 0, 0, 0}, 1, 1}, {{500, 100, 101, 0, 0, 0}, 1, -1},
        {{0, 0, 0, 200, 200, 200}, 5, -1}, {{0, 0, 0, 200, 0, 200}, 6, 5},
    };
    for (const Row& row : rows) {
        setpoint(170, row.from, "SlicerPosition").type = 3;
        for (int position = 1; position <= 6; ++position)
            test.instrument().dictionary["SlicerPos[" + std::to_string(position) + "].Hours"] = row.hours[position - 1];
        auto made = globals();
        EXPECT_EQ(made.IsSlicerPosHighResolution(), row.from >= 4);
        EXPECT_EQ(made.SeekNextAvailableCleanSlicerPosForTune(), row.expected) << row.from;
        EXPECT_EQ(test.instrument().setpoints[170].value, row.expected < 0 ? row.from : row.expected);
        EXPECT_EQ(made.tune_log_path().empty(), row.expected > 0) << "no warning where nothing is clean";
    }
    EXPECT_TRUE(test.log_lines("TuneLog_").back().starts_with("AUTOTUNE LOG: WARNING: "));
}

TEST_F(SourceAndState, WornSlicerCanBeRehearsedAndAnImpossiblePositionIsNamed) {
    setpoint(170, 1, "SlicerPosition").type = 3;
    for (int position = 1; position <= 6; ++position)
        test.instrument().dictionary["SlicerPos[" + std::to_string(position) + "].Hours"] = 0.0;
    auto made = globals();
    test.preference("SlicerLifeTime_SimulateOverLimit", "Yes");
    EXPECT_EQ(made.SeekNextAvailableCleanSlicerPosForTune(), -1);
    test.preference("SlicerLifeTime_SimulateOverLimit", "yes");
    EXPECT_EQ(made.SeekNextAvailableCleanSlicerPosForTune(), 2);
    test.instrument().setpoints[170].upper = 2;
    EXPECT_EQ(raised([&] { made.SeekNextAvailableCleanSlicerPosForTune(); }),
              "-1|SeekNextAvailableCleanSlicerPosForTune|slicer position[3] was not taken; position[2]");
    test.instrument().dictionary.erase("SlicerPos[3].Hours");
    EXPECT_EQ(raised([&] { made.SeekNextAvailableCleanSlicerPosForTune(); }).substr(0, 2), "5|");
    for (int position : {0, 7}) {
        setpoint(170, position);
        EXPECT_EQ(raised([&] { made.SeekNextAvailableCleanSlicerPosForTune(); }),
                  "-1|SeekNextAvailableCleanSlicerPosForTune|slicer position[" + std::to_string(position) +
                      "] is not one of [6]");
    }
}

}  // namespace
}  // namespace korvane
