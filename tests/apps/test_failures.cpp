// What the program refuses and how it fails: exit code, and one line that names the matter.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "commands.h"
#include "exit_codes.h"
#include "program_run.h"
#include "support/environment.h"
#include "support/virtual_clock.h"

namespace korvane::program {
namespace {

namespace fs = std::filesystem;

/// No data, one line of failure, which names the matter.
void expect_failure(const Outcome& run, int code, const std::string& named) {
    const char* const mark = code == 2 ? " --help)" : ": error ";
    EXPECT_EQ(run.code, code) << named << ": " << run.err;
    EXPECT_TRUE(run.out.empty()) << named << ": " << run.out;
    ASSERT_EQ(run.failure_lines().size(), 1U) << named << ": " << run.err;
    EXPECT_NE(run.failure_lines().front().find(named), std::string::npos) << named << ": " << run.err;
    EXPECT_NE(run.failure_lines().front().find(mark), std::string::npos) << named << ": " << run.err;
}

/// The words of a line; '' is an empty one.
std::vector<std::string> words_of(const std::string& line) {
    std::istringstream text(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    std::replace(words.begin(), words.end(), std::string("''"), std::string());
    return words;
}

struct RefusedCalls {
    std::string command;
    std::vector<std::string> ends;  // each completes the command
    std::string named;              // in the line; empty: the last word
    int code = 2;
};

TEST(Usage, WhatCannotBeDoneIsRefusedInOneLineThatNamesIt) {
    const ProgramTest program;
    const std::vector<RefusedCalls> calls{
        {"", {"mesure", "measure extra", "abort perhaps"}, ""},
        {"", {"", "setpoint"}, "subcommand"},
        {"measure --mass ", {"abc", "0", "-5", "nan", "inf", "1e999", "0x10", "1,5"}, ""},
        {"measure --mass ", {"1e7"}, "mass range"},
        {"measure --window ", {"0", "100"}, "--window"},
        {"measure --seed ", {"-1", "18446744073709551616"}, ""},
        {"measure --replay ", {"''"}, "--replay: the name is empty"},
        {"init ", {"''"}, "DIR: the name is empty"},
        {"peak", {""}, "MASS"},
        {"peak 922 --attribute ", {"colour"}, ""},
        {"peak 21 --window ", {"30"}, "below mass 0"},
        {"adjust Fragmentation --mz 566.8885 --target ", {"1"}, "no setpoint Fragmentation"},
        {"adjust FragmentTune --mz 566.8885", {""}, "--target"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--min 200 --max 100"}, "--min 200"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--max 1e6", "--min -1"}, "0 to 400"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--resolution 0"}, "--resolution"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--fast"}, "QuadAMU"},
        {"setpoint get ", {"31x", "99999999999"}, ""},
        {"setpoint set FragmentTune ", {"", "100 --delta 1"}, "--delta"},
        {"setpoint set FragmentTune ", {"401", "--delta -1000"}, "0 to 400"},
        {"params set RampParams MinimumAcceptableAbundance ", {"many"}, ""},
        {"masslist show --polarity ", {"sideways"}, ""},
        {"masslist set", {""}, "MASS"},
        {"calibration set -A 0.45 ", {"", "--t0 0.02 --default"}, "--default"},
        {"calibration show --repeat ", {"1", "10001", "2.5"}, "from 2 to 10000"},
        {"record x.mzML -n ", {"0"}, "from 1 to 100000"},
        {"params ", {"get RampParams Nonsense", "get Nonsense X", "get Ramp[ X", "list --tree NoSuchTree"}, "", 3},
        {"params ", {"get IndexedSlicer NumberOfPositions"}, "IndexedSlicer", 3},
        {"params set Limits ", {"DualSGF_DefaultSheathGasTemp 1"}, "not permitted", 3},
        {"", {"prefs get Nonsense", "masslist set 100 --source Laser", "conform /nowhere/layer.so"}, "", 3},
        {"", {"measure --replay /run.mzML", "measure --scene /scene.json", "record /nowhere/run.mzML"}, "", 3},
    };
    for (const auto& [command, ends, named, code] : calls)
        for (const std::string& end : ends)
            expect_failure(program.run(words_of(command + end)), code,
                           named.empty() ? end.substr(end.rfind(' ') + 1) : named);
}

TEST(Numbers, AreReadWholeAndFinite) {
    for (const char* text : {"", " 1", "1 ", "1.2.3", "+-1", "--1", "1e", "infinity", "-nan", "1e400", "0x1p3"})
        EXPECT_FALSE(parse_number(text)) << text;
    EXPECT_EQ(parse_number("+1.5e2"), 150.0);
    EXPECT_EQ(parse_number("-.5"), -0.5);
}

TEST(ExitCodes, FollowTheKind) {
    const std::vector<std::pair<Error, ExitCode>> cases{
        {{5, "Korvane", "Invalid procedure call or argument: x"}, ExitCode::instrument},
        {{5, "Korvane", "", ErrorKind::time_out}, ExitCode::time_out},
        {{-2147220000, "Instrument", ""}, ExitCode::instrument},
        {{7, "Korvane", ""}, ExitCode::internal_fault},
    };
    for (const auto& [error, code] : cases) EXPECT_EQ(exit_code_of(error), code) << error.number();
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
    EXPECT_EQ(failure_line(Error(5, "Korvane", "Invalid procedure call or argument", ErrorKind::time_out), "measure",
                           "/base"),
              "korvane: measure: error 5: Invalid procedure call or argument (no populated spectrum within 15 s)");
}

// A fault done to one file of a fresh base folder, and what has to come of it.
struct BrokenBase {
    std::string file;
    std::string old;   ///< of its text; empty: all of it
    std::string text;  ///< in its place; "-" for all of it: no file
    std::string command;
    int code;
    std::string named;  ///< in the line

    void harm(const fs::path& base) const {
        std::string content = old.empty() ? text : read_text(base / file);
        if (!old.empty()) content.replace(content.find(old), old.size(), text);
        write_text(base / file, content);
        if (text == "-") fs::remove(base / file);
    }
};

TEST(Failures, BrokenBaseFoldersEndInTheirExitCodeAndOneLine) {
    const std::string params = "TuneParams.xml", prefs = "TunePreferences.xml",
                      lists = "MassLists/default_calibration_mass_list.xml";
    const std::vector<BrokenBase> cases{
        {params, "", "<QTOFTuneParams><a>", "measure", 3, params},
        {params, "", "", "measure", 3, params},
        {params, "", "-", "measure", 3, params},
        {prefs, "", "<Tune", "measure", 3, prefs},
        {prefs, "", "-", "abort status", 3, prefs},
        {prefs, "AbortFlag>0</AbortFlag", "A/", "abort request", 3, "AbortFlag"},
        {params, "MinimumAcceptableAbundance>", "MinimumAcceptableAbundance>many", "measure", 3, "many"},
        {params, "PeakFindWindowInPercentT>", "PeakFindWindowInPercentT>x", "measure", 3, "PeakFindWindowInPercentT"},
        {lists, "", "-", "measure", 3, "default_calibration"},
        {lists, "", "<QTOF", "measure", 3, "default_calibration"},
        {lists, "", "<Other/>", "measure", 3, "default_calibration"},
        {lists, "", "<QTOF_MassListConfiguration/>", "measure", 3, "ESI"},
        {lists, "158.9640", "heavy!!!", "measure", 3, "heavy"},
        {"scene.json", "", "{", "measure", 3, "scene.json"},
        {"instrument.json", "", "[]", "state", 3, "instrument.json"},
        {prefs, "", "<TunePreferences>", "prefs list", 3, prefs},
        {lists, "", "-", "masslist check", 3, "default_calibration"},
        {"scene.json", "", R"({"background": {"count": 0}})", "peak 2000", 4, "No peaks"},
        {"scene.json", "", R"({"instrument": {"spectrum_duration_ns": 35000}})",
         "measure --mass 294.9388 --mass 566.8885", 2, "566.8885"},
        {"scene.json", "", R"({"sample": {"calibrant_factor": 0}})", "verify", 1, "Bottle B"},
        {prefs, "AbortFlag>0", "AbortFlag>1", "measure", 6, "User aborted"},
        // What takes too long: on a clock that does not wait.
        {"scene.json", "", R"({"faults": {"empty_spectra": {"first": 0, "count": 100000}},
                               "instrument": {"spectrum_period_ms": 1000}})",
         "measure", 5, "within 15 s"},
        {"scene.json", "", R"({"faults": {"wrong_polarity": {"first": 0, "count": 100000}},
                               "instrument": {"spectrum_period_ms": 1000}})",
         "measure", 5, "within 45 s"},
        {"scene.json", "", R"({"faults": {"setpoints": [{"setpoint": "FragmentTune", "never": true}]},
                               "instrument": {"spectrum_period_ms": 1000}})",
         "setpoint set FragmentTune 200 --until-set", 5, "-807"},
    };
    for (const BrokenBase& broken : cases) {
        const ProgramTest program;
        broken.harm(program.base);
        Platform system = make_platform(nullptr);
        system.clock = std::make_shared<VirtualClock>();
        expect_failure(program.run(words_of(broken.command), system), broken.code, broken.named);
    }
}

TEST(Failures, StoresMassListsAndAbortFlagDoNotNeedTheInstrument) {
    const ProgramTest program;
    program.scene("{");
    write_text(program.base / "instrument.json", "[]");
    for (const char* command : {"prefs list", "params get Misc SettlingTime", "masslist show --all", "abort request",
                                "abort reset", "params list --replay /nowhere/run.mzML"})
        EXPECT_EQ(program.run(words_of(command)).code, 0) << command;
}

TEST(Failures, ALayerThatCannotBeHadIsNamedAndNoOtherFolderTaken) {
    const ProgramTest program;
    const EnvironmentVariable named("KORVANE_INSTRUMENT", "/nowhere/layer.so");
    const EnvironmentVariable base("KORVANE_BASE", program.base.string());
    for (const char* command : {"state", "prefs get AbortFlag", "prefs list", "params get Misc SettlingTime",
                                "abort request", "masslist check", "conform"})
        expect_failure(run_program(words_of(command)), 3, "/nowhere/layer.so");
    EXPECT_EQ(program.run({"prefs", "get", "AbortFlag"}).out, "0\n") << "--base asks for the embedded instrument";
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
