// The other commands: what they change, and what they print.
#include <gtest/gtest.h>

#include <cmath>

#include "program_run.h"

namespace korvane::program {
namespace {

TEST(Setpoint, ListAgreesWithGetByIndexAndByName) {
    const ProgramTest program;
    const nlohmann::json rows = program.run({"setpoint", "list", "--json"}).json()["setpoints"];
    ASSERT_GT(rows.size(), 20U);
    for (const auto& row : {rows.front(), rows.back()}) {
        const std::string index = std::to_string(row["index"].get<int>());
        EXPECT_EQ(program.run({"setpoint", "get", index, "--json"}).json(), row);
        EXPECT_EQ(program.run({"setpoint", "get", row["internal_name"], "--json"}).json(), row);
    }
}

TEST(Setpoint, DeltaAddsToTheValueThatTheLastRunLeft) {
    const ProgramTest program;
    ASSERT_EQ(program.run({"setpoint", "set", "FragmentTune", "180"}).out, "180\n");
    EXPECT_EQ(program.run({"setpoint", "set", "FragmentTune", "--delta", "-5", "--until-set"}).out, "175\n");
}

TEST(Params, SetKeepsTheTextAndEveryOtherByte) {
    const ProgramTest program;
    const auto file = program.base / "TuneParams.xml";
    std::string expected = read_text(file);
    const std::string old = "<SettlingTime>2<";
    expected.replace(expected.find(old), old.size(), "<SettlingTime>2.50<");
    ASSERT_EQ(program.run({"params", "set", "Misc", "SettlingTime", "2.50"}).out, "2.5\n");
    EXPECT_EQ(read_text(file), expected);
}

TEST(Params, TreesAreReadWrittenAndListed) {
    const ProgramTest program;
    const std::vector<std::string> tree{"--tree", "ManualTuneParameters"};
    const auto with_tree = [&](std::vector<std::string> words) {
        words.insert(words.end(), tree.begin(), tree.end());
        return program.run(words);
    };
    ASSERT_EQ(with_tree({"params", "set", "IndexedSlicer", "NumberOfPositions", "8"}).code, 0);
    EXPECT_EQ(with_tree({"params", "get", "IndexedSlicer", "NumberOfPositions"}).out, "8\n");
    const auto groups = with_tree({"params", "list", "--json"}).json()["groups"];
    EXPECT_EQ(groups["IndexedSlicer"]["NumberOfPositions"], "8");
    EXPECT_EQ(program.run({"params", "get", "IndexedSlicer", "NumberOfPositions"}).code, 3) << "another tree";
}

TEST(Prefs, TextIsKeptAsGiven) {
    const ProgramTest program;
    const std::string text = " <3 & \"more\" ";
    ASSERT_EQ(program.run({"prefs", "set", "TriggerErrorin_TriggerErrorString", text}).code, 0);
    EXPECT_EQ(program.run({"prefs", "get", "TriggerErrorin_TriggerErrorString"}).out, text + "\n");
    EXPECT_EQ(program.run({"prefs", "list", "--json"}).json()["preferences"]["TriggerErrorin_TriggerErrorString"],
              text);
}

TEST(MassList, CheckFindsEveryFault) {
    const ProgramTest program;
    EXPECT_EQ(program.run({"masslist", "check"}).code, 0);
    const auto file = program.base / "MassLists" / "default_calibration_mass_list.xml";
    write_text(file,
               "<QTOF_MassListConfiguration>"
               "<Configuration IonSource='A' IonPolarity='Positive'><MassList><mass Used='1'>3</mass>"
               "<mass Used='1'>2</mass><mass Used='1'>heavy</mass><mass Used='1'>4</mass></MassList></Configuration>"
               "<Configuration IonSource='B' IonPolarity='Negative'/></QTOF_MassListConfiguration>");
    const Outcome check = program.run({"masslist", "check", "--json"});
    EXPECT_EQ(check.code, 1);
    EXPECT_EQ(check.failure_lines().size(), 1U) << check.err;
    EXPECT_EQ(check.json()["faults"],
              (nlohmann::json{"A, Positive: 2 does not ascend", "A, Positive: \"heavy\" is not a mass",
                              "B, Negative: 0 masses, fewer than 4"}));
}

TEST(MassList, SetChangesOneListOnly) {
    const ProgramTest program;
    const nlohmann::json before = program.run({"masslist", "show", "--all", "--json"}).json()["lists"];
    ASSERT_EQ(
        program.run({"masslist", "set", "300", "100", "--unused", "200", "--source", "APCI", "--polarity", "Negative"})
            .code,
        0);
    const nlohmann::json after = program.run({"masslist", "show", "--all", "--json"}).json()["lists"];
    ASSERT_EQ(after.size(), before.size());
    int changed = 0;
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (after[i] == before[i]) continue;
        ++changed;
        EXPECT_EQ(after[i]["source"], "APCI");
        EXPECT_EQ(after[i]["masses"],
                  nlohmann::json::parse(
                      R"([{"mass": 100.0, "used": "1"}, {"mass": 200.0, "used": "0"}, {"mass": 300.0, "used": "1"}])"));
    }
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(program.run({"masslist", "set", "100", "--source", "Laser"}).code, 3) << "a source that the file lacks";
}

TEST(Calibration, SetShowsInMassErrorsAndDefaultUndoesIt) {
    const ProgramTest program;
    const nlohmann::json before = program.run({"calibration", "show", "--json"}).json();
    // A 100 ppm larger A gives masses 200 ppm too high.
    const std::string a = std::to_string(before["usec"]["A"].get<double>() * 1.0001);
    const std::string t0 = std::to_string(before["usec"]["B"].get<double>());
    ASSERT_EQ(program.run({"calibration", "set", "-A", a, "--t0", t0}).code, 0);
    const auto errors = program.run({"calibration", "show", "--repeat", "3", "--json"}).json()["mass_errors"];
    ASSERT_EQ(errors.size(), 10U);
    for (const auto& row : errors) {
        EXPECT_EQ(row["found"], 3);
        EXPECT_NEAR(row["mean_ppm"].get<double>(), 200, 8) << row["mass"];
        EXPECT_GT(row["stdev_ppm"].get<double>(), 0);
    }
    ASSERT_EQ(program.run({"calibration", "set", "--default"}).code, 0);
    EXPECT_EQ(program.run({"calibration", "show", "--json"}).json()["ns"]["A"], before["ns"]["A"]);
}

TEST(State, TellsWhatTheInstrumentIsSetTo) {
    const ProgramTest program;
    ASSERT_EQ(program.run({"setpoint", "set", "Polarity", "1"}).code, 0);
    const nlohmann::json state = program.run({"state", "--json"}).json();
    EXPECT_EQ(state["polarity"], "Negative");
    EXPECT_EQ(state["quad_type"], "4000 amu");
    EXPECT_EQ(state["saturation_threshold_hard"], 255.0 * 5000);
    EXPECT_EQ(state["ready"], true);
    EXPECT_EQ(state["base_folder"], program.base.string());
}

TEST(Peak, AttributesAgreeWithTheRecord) {
    const ProgramTest program;
    const nlohmann::json record = program.run({"peak", "566.8885", "--json"}).json();
    EXPECT_NEAR(record["amu"]["pkCentroid"].get<double>(), 566.8885, 566 * 5e-6);
    const std::vector<std::pair<std::string, double>> expected{{"mass", record["amu"]["pkCentroid"]},
                                                               {"time", record["ns"]["pkCentroid"]},
                                                               {"height", record["amu"]["pkHeight"]},
                                                               {"resolution", record["amu"]["pkResolution"]}};
    for (const auto& [name, value] : expected)
        EXPECT_NEAR(program.run({"peak", "566.8885", "--attribute", name, "--json"}).json()["value"].get<double>(),
                    value, std::abs(value) * 1e-9)
            << name;
}

TEST(Verify, PassesOnAGoodInstrument) {
    const ProgramTest program;
    const Outcome run = program.run({"verify", "--json"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.json()["valid"], true);
}

TEST(Verify, FailsWithTheOperatorsMessageAsJsonToo) {
    ProgramTest program;
    program.scene(R"({"sample": {"calibrant_factor": 0}})");
    const Outcome run = program.run({"verify", "--json"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.json()["valid"], false);
    EXPECT_NE(run.json()["message"].get<std::string>().find("Insufficient number of calibrant ions"),
              std::string::npos);
}

TEST(Adjust, ComesDownToTheTargetAndAppliesOnlyWhenAsked) {
    const ProgramTest program;
    const double height = program.run({"peak", "566.8885", "--json"}).json()["amu"]["pkHeight"];
    std::vector<std::string> words{
        "adjust", "FragmentTune", "--mz", "566.8885", "--target", std::to_string(height / 3), "--max", "175", "--json"};
    const Outcome searched = program.run(words);
    ASSERT_EQ(searched.code, 0) << searched.err;
    EXPECT_NE(searched.err.find("probe 1: "), std::string::npos) << searched.err;
    const nlohmann::json result = searched.json();
    EXPECT_EQ(result["probes"].size(), result["probes_made"].get<std::size_t>());
    EXPECT_EQ(result["applied"], false);
    EXPECT_EQ(result["end"], "within tolerance") << searched.out;
    EXPECT_NEAR(result["abundance"].get<double>(), result["scaled_target"].get<double>(),
                result["scaled_target"].get<double>() * 0.2);
    words.insert(words.end(), {"--apply", "--no-progress"});
    const Outcome applied = program.run(words);
    EXPECT_EQ(applied.err.find("probe"), std::string::npos) << applied.err;
    EXPECT_EQ(std::stod(program.run({"setpoint", "get", "FragmentTune"}).out), applied.json()["value"].get<double>());
}

TEST(Adjust, FastLeavesThePreferenceAlone) {
    const ProgramTest program;
    const auto file = program.base / "TunePreferences.xml";
    const std::string before = read_text(file);
    const auto written = std::filesystem::last_write_time(file);
    const Outcome run = program.run({"adjust", "QuadAMU", "--raise-to-reduce", "--mz", "566.8885", "--target", "50000",
                                     "--fast", "--json", "--no-progress"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.json()["end"], "within tolerance") << run.out;
    EXPECT_EQ(read_text(file), before);
    EXPECT_EQ(std::filesystem::last_write_time(file), written);
}

TEST(Adjust, DrawsABarOnATerminalOnly) {
    const ProgramTest program;
    const Outcome run = run_program({"adjust", "FragmentTune", "--mz", "566.8885", "--target", "10000", "--max", "175",
                                     "--base", program.base.string()},
                                    true);
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.err.find("\r["), std::string::npos);
    EXPECT_EQ(run.out.find("["), std::string::npos);
}

TEST(Abort, StandsUntilReset) {
    const ProgramTest program;
    EXPECT_EQ(program.run({"abort", "status", "--json"}).json()["requested"], false);
    EXPECT_EQ(program.run({"abort", "request"}).code, 0);
    EXPECT_EQ(program.run({"abort", "status", "--json"}).json()["requested"], true);
    EXPECT_EQ(program.run({"verify"}).code, 6);
    EXPECT_EQ(program.run({"abort", "reset"}).code, 0);
    EXPECT_EQ(program.run({"verify"}).code, 0);
}

}  // namespace
}  // namespace korvane::program
