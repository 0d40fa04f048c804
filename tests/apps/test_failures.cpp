// Failures: their exit codes, and that each prints one line.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "exit_codes.h"
#include "program_run.h"

namespace korvane::program {
namespace {

namespace fs = std::filesystem;

TEST(ExitCodes, FollowNumberAndSource) {
    const std::vector<std::pair<Error, ExitCode>> cases{
        {{1, "", "User aborted"}, ExitCode::aborted},
        {{-821, "VerifyInstrumentIsShowingValidCalibrantSpectrum", ""}, ExitCode::check_failed},
        {{-8, "WaitForSpectrumWithProperPolarityAndExperimentIndex", ""}, ExitCode::time_out},
        {{-807, "SetMSSetpointValueByIdx", ""}, ExitCode::time_out},
        {{-1, "CalMassList", "Failed to open mass list file: x"}, ExitCode::configuration},
        {{-1, "GetPeakAttribute()", "No peaks returned by peakfinder"}, ExitCode::instrument},
        {{-901, "AutotuneParameterXMLConfigFileReader", ""}, ExitCode::configuration},
        {{-904, "AutotuneParameterXMLConfigFileReader", ""}, ExitCode::configuration},
        {{-905, "GetTuneParamByXMLPath", ""}, ExitCode::configuration},
        {{-906, "", ""}, ExitCode::configuration},
        {{13, "Korvane", ""}, ExitCode::configuration},
        {{70, "Korvane", ""}, ExitCode::configuration},
        {{7, "Korvane", ""}, ExitCode::internal_fault},
        {{5, "Korvane", "Invalid procedure call or argument"}, ExitCode::time_out},
        {{5, "Korvane", "Invalid procedure call or argument: unknown item"}, ExitCode::instrument},
        {{-2147220000, "Instrument", ""}, ExitCode::instrument},
    };
    for (const auto& [error, code] : cases)
        EXPECT_EQ(exit_code_of(error), code) << error.number() << " " << error.source();
}

TEST(FailureLine, IsOneLineWhateverTheTextsHold) {
    EXPECT_EQ(failure_line(Error(-821, "Verify", "Too few ions.\r\n\r\nBottle B may be empty"), "verify"),
              "korvane: Verify: error -821: Too few ions. Bottle B may be empty");
    EXPECT_EQ(failure_line(Error(-1, "", "first\nsecond\n"), "measure"), "korvane: measure: error -1: first; second");
    EXPECT_EQ(failure_line(Error(4711, "A\nB", "\r\n"), "measure"), "korvane: A; B: error 4711: no description");
}

TEST(FailureLine, SaysWhatDescriptionsLeaveOut) {
    EXPECT_EQ(failure_line(Error(-906, "", ""), "params set", "/base"),
              "korvane: params set: error -906: this parameter group is not permitted here (base folder /base)");
    EXPECT_EQ(failure_line(Error(-904, "Store", "Failed to load /base/TuneParams.xml"), "measure", "/base"),
              "korvane: Store: error -904: Failed to load /base/TuneParams.xml");
    EXPECT_EQ(failure_line(Error(5, "Korvane", "Invalid procedure call or argument"), "measure", "/base"),
              "korvane: measure: error 5: Invalid procedure call or argument (no populated spectrum within 15 s)");
}

// A fault done to a fresh base folder, and what has to come of it.
struct BrokenBase {
    std::string name;
    std::function<void(const fs::path&)> harm;
    std::vector<std::string> command;
    int code;
    std::string named;  // in the line
};

void spoil_leaf(const fs::path& file, const std::string& element, const std::string& text) {
    std::string xml = read_text(file);
    const auto begin = xml.find("<" + element + ">") + element.size() + 2;
    xml.replace(begin, xml.find("</" + element) - begin, text);
    write_text(file, xml);
}

TEST(Failures, BrokenBaseFoldersEndInTheirExitCodeAndOneLine) {
    const char* const lists = "MassLists/default_calibration_mass_list.xml";
    const std::vector<BrokenBase> cases{
        {"malformed parameters",
         [](const fs::path& b) { write_text(b / "TuneParams.xml", "<QTOFTuneParams><a>"); },
         {"measure"},
         3,
         "TuneParams.xml"},
        {"empty parameters",
         [](const fs::path& b) { write_text(b / "TuneParams.xml", ""); },
         {"measure"},
         3,
         "TuneParams.xml"},
        {"missing parameters",
         [](const fs::path& b) { fs::remove(b / "TuneParams.xml"); },
         {"measure"},
         3,
         "TuneParams.xml"},
        {"malformed preferences",
         [](const fs::path& b) { write_text(b / "TunePreferences.xml", "<Tune"); },
         {"measure"},
         3,
         "TunePreferences.xml"},
        {"preferences without flag",
         [](const fs::path& b) {
             write_text(b / "TunePreferences.xml",
                        "<TunePreferences><LogSetpointTraffic>No</LogSetpointTraffic></TunePreferences>");
         },
         {"abort", "request"},
         3,
         "AbortFlag"},
        {"limit that is no number",
         [](const fs::path& b) { spoil_leaf(b / "TuneParams.xml", "MinimumAcceptableAbundance", "many"); },
         {"measure"},
         3,
         "many"},
        {"window that is no number",
         [](const fs::path& b) { spoil_leaf(b / "TuneParams.xml", "PeakFindWindowInPercentT", ""); },
         {"measure"},
         3,
         "PeakFindWindowInPercentT"},
        {"missing lists", [=](const fs::path& b) { fs::remove(b / lists); }, {"measure"}, 3, "default_calibration"},
        {"malformed lists",
         [=](const fs::path& b) { write_text(b / lists, "<QTOF"); },
         {"measure"},
         3,
         "default_calibration"},
        {"foreign lists",
         [=](const fs::path& b) { write_text(b / lists, "<Other/>"); },
         {"measure"},
         3,
         "default_calibration"},
        {"a list without its source",
         [=](const fs::path& b) { write_text(b / lists, "<QTOF_MassListConfiguration/>"); },
         {"measure"},
         3,
         "ESI"},
        {"a mass that is no number",
         [=](const fs::path& b) {
             std::string xml = read_text(b / lists);
             xml.replace(xml.find("158.9640"), 8, "heavy!!!");
             write_text(b / lists, xml);
         },
         {"measure"},
         3,
         "heavy"},
        {"malformed scene", [](const fs::path& b) { write_text(b / "scene.json", "{"); }, {"measure"}, 3, "scene.json"},
        {"malformed state",
         [](const fs::path& b) { write_text(b / "instrument.json", "[]"); },
         {"state"},
         3,
         "instrument.json"},
        {"unknown parameter", [](const fs::path&) {}, {"params", "get", "RampParams", "Nonsense"}, 3, "Nonsense"},
        {"unknown group", [](const fs::path&) {}, {"params", "get", "Nonsense", "X"}, 3, "Nonsense"},
        {"forbidden group",
         [](const fs::path&) {},
         {"params", "set", "Limits", "DualSGF_DefaultSheathGasTemp", "1"},
         3,
         "not permitted"},
        {"group that is no name", [](const fs::path&) {}, {"params", "get", "Ramp[", "X"}, 3, "Ramp["},
        {"unknown preference", [](const fs::path&) {}, {"prefs", "get", "Nonsense"}, 3, "Nonsense"},
        {"missing recording", [](const fs::path&) {}, {"measure", "--replay", "/nowhere/run.mzML"}, 3, "run.mzML"},
        {"missing scene", [](const fs::path&) {}, {"measure", "--scene", "/nowhere/scene.json"}, 3, "scene.json"},
        {"place that cannot be written", [](const fs::path&) {}, {"record", "/nowhere/run.mzML"}, 3, "run.mzML"},
        {"nothing to see at that mass",
         [](const fs::path& b) { write_text(b / "scene.json", R"({"background": {"count": 0}})"); },
         {"peak", "2000"},
         4,
         "No peaks"},
        {"no calibrant left",
         [](const fs::path& b) { write_text(b / "scene.json", R"({"sample": {"calibrant_factor": 0}})"); },
         {"verify"},
         1,
         "Bottle B"},
        {"abort requested",
         [](const fs::path& b) { spoil_leaf(b / "TunePreferences.xml", "AbortFlag", "1"); },
         {"measure"},
         6,
         "User aborted"},
    };
    for (const BrokenBase& broken : cases) {
        const ProgramTest program;
        broken.harm(program.base);
        const Outcome run = program.run(broken.command);
        EXPECT_EQ(run.code, broken.code) << broken.name << ": " << run.err;
        EXPECT_TRUE(run.out.empty()) << broken.name << ": " << run.out;
        ASSERT_EQ(run.failure_lines().size(), 1U) << broken.name << ": " << run.err;
        EXPECT_NE(run.failure_lines().front().find(": error "), std::string::npos) << broken.name << ": " << run.err;
        EXPECT_NE(run.failure_lines().front().find(broken.named), std::string::npos) << broken.name << ": " << run.err;
    }
}

TEST(Failures, ABaseFolderThatIsAFileIsNamed) {
    const ProgramTest program;
    write_text(program.file("file"), "keep");
    const Outcome run = run_program({"measure", "--base", program.file("file")});
    EXPECT_EQ(run.code, 3);
    EXPECT_NE(run.err.find(program.file("file")), std::string::npos) << run.err;
    EXPECT_EQ(read_text(program.file("file")), "keep");
}

TEST(Failures, InitKeepsWhatIsThere) {
    const ProgramTest program;
    const std::string before = read_text(program.base / "TuneParams.xml");
    const Outcome run = run_program({"init", program.base.string()});
    EXPECT_EQ(run.code, 3);
    EXPECT_EQ(run.failure_lines().size(), 1U) << run.err;
    EXPECT_EQ(read_text(program.base / "TuneParams.xml"), before);
}

TEST(Failures, AReadOnlyFileIsMadeWritableAndSaved) {
    const ProgramTest program;
    const fs::path file = program.base / "TunePreferences.xml";
    fs::permissions(file, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    EXPECT_EQ(program.run({"prefs", "set", "LogSetpointTraffic", "Yes"}).code, 0);
    EXPECT_EQ(program.run({"prefs", "get", "LogSetpointTraffic"}).out, "Yes\n");
}

TEST(Failures, WhatTakesTooLongEndsInATimeOut) {
    ProgramTest program;
    program.scene(
        R"({"instrument": {"spectrum_period_ms": 1000}, "faults": {"empty_spectra": {"first": 0, "count": 100000}}})");
    EXPECT_EQ(program.run_without_waiting({"measure"}).code, 5) << "no populated spectrum";
    program.scene(
        R"({"instrument": {"spectrum_period_ms": 1000}, "faults": {"wrong_polarity": {"first": 0, "count": 100000}}})");
    EXPECT_EQ(program.run_without_waiting({"measure"}).code, 5) << "no spectrum of the polarity";
    program.scene(
        R"({"instrument": {"spectrum_period_ms": 1000}, "faults": {"setpoints": [{"setpoint": "FragmentTune", "never": true}]}})");
    EXPECT_EQ(program.run_without_waiting({"setpoint", "set", "FragmentTune", "200", "--until-set"}).code, 5);
}

TEST(Failures, DataThatCannotBeWrittenIsAFailure) {
    const ProgramTest program;
    std::ofstream full("/dev/full");
    if (!full) GTEST_SKIP() << "no /dev/full";
    std::ostringstream err;
    const std::string base = program.base.string();
    const char* const words[] = {"korvane", "--base", base.c_str(), "params", "list"};
    EXPECT_EQ(run_command_line(5, words, {full, err, false}), 3);
    EXPECT_NE(err.str().find("standard output"), std::string::npos) << err.str();
}

}  // namespace
}  // namespace korvane::program
