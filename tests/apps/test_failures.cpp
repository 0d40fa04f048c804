// What the examples of the documents do not show: refusals and failures, an exit code and one line that names the
// matter.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "exit_codes.h"
#include "program_run.h"
#include "support/environment.h"
#include "support/virtual_clock.h"

namespace korvane::program {
namespace {

namespace fs = std::filesystem;

/// No data, one line of failure, which names the matter.
void expect_failure(const Outcome& run, int code, const std::string& named) {
    SCOPED_TRACE(named + ": " + run.err);
    EXPECT_EQ(run.code, code);
    EXPECT_EQ(run.out, "");
    const std::size_t begin = ("\n" + run.err).find("\nkorvane");
    ASSERT_NE(begin, std::string::npos);
    const std::string line = run.err.substr(begin, run.err.find('\n', begin) - begin);
    EXPECT_NE(line.find(named), std::string::npos);
    EXPECT_NE(line.find(code == 2 ? " --help)" : ": error "), std::string::npos);
    EXPECT_EQ(run.err.find("\nkorvane", begin), std::string::npos) << "another line of failure";
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
        {"measure --mass ", {"abc", "0", "-5", "nan", "inf", "1e999", "0x10", "1,5", "1.2.3", "+-1", "1e"}, ""},
        {"measure --mass ", {"1e7"}, "mass range"},
        {"measure --window ", {"0", "100"}, "--window"},
        {"measure --seed ", {"-1", "18446744073709551616"}, ""},
        {"measure --replay ", {"''"}, "--replay: the name is empty"},
        {"peak", {""}, "MASS"},
        {"peak 21 --window ", {"30"}, "below mass 0"},
        {"peaks ", {"--spectrum 0", "--ms-level 0", "--assume-polarity both"}, ""},
        {"peaks --from 3 --to ", {"2"}, "--from lies above"},
        {"peaks /nowhere/run.mzML", {""}, "/nowhere/run.mzML", 3},
        {"adjust Fragmentation --mz 566.8885 --target ", {"1"}, "no setpoint Fragmentation"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--min 200 --max 100"}, "--min 200"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--max 1e6", "--min -1"}, "0 to 400"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--resolution 0"}, "--resolution"},
        {"adjust 30 --mz 566.8885 --target 1 ", {"--fast"}, "QuadAMU"},
        {"adjust 30 --mz 566.8885 --target 1 --around ", {"0%", "ten"}, "--around: \""},
        {"adjust 30 --mz 566.8885 --target 1 --around 10% ", {"--min 5"}, "--min"},
        {"adjust 22 --mz 566.8885 --target 1 --method ", {"guess", "secant --fast"}, ""},
        {"setpoint get ", {"31x", "99999999999"}, ""},
        {"setpoint set POLARITY ", {"0.7", "--delta 0.5"}, "whole numbers only"},
        {"setpoint set Polarity ", {"sideways"}, "none of positive, negative"},
        {"setpoint set FragmentTune ", {"", "100 --delta 1"}, "--delta"},
        {"setpoint set FragmentTune ", {"401", "--delta -1000"}, "0 to 400"},
        {"params set RampParams MinimumAcceptableAbundance ", {"many"}, ""},
        {"calibration set -A 0.45 ", {"", "--t0 0.02 --default"}, "--default"},
        {"calibration show --repeat ", {"1", "10001", "2.5"}, "from 2 to 10000"},
        {"calibration fit ", {"--force"}, "--apply"},
        {"calibration ", {"undo"}, "PreviousCalibration.json", 3},
        {"record x.mzML -n ", {"0"}, "from 1 to 100000"},
        {"params ", {"get RampParams Nonsense", "get Nonsense X", "list --tree NoSuchTree"}, "", 3},
        {"params ", {"get Ramp[ X", "set Calibration ../../.. 5", "list --tree a/b"}, "is not a name"},
        {"", {"prefs get x'='", "prefs set my=pref 1", "masslist show --source x'or'1'='1"}, "is not a name"},
        {"params ", {"get IndexedSlicer NumberOfPositions"}, "IndexedSlicer", 3},
        {"params set Limits ", {"DualSGF_DefaultSheathGasTemp 1"}, "not permitted", 3},
        {"", {"prefs get Nonsense", "masslist set 100 --source Laser", "conform /nowhere/layer.so"}, "", 3},
        {"", {"measure --replay /run.mzML", "measure --scene /scene.json", "record /nowhere/run.mzML"}, "", 3}};
    for (const auto& [command, ends, named, code] : calls)
        for (const std::string& end : ends)
            expect_failure(program.run(command + end), code, named.empty() ? end.substr(end.rfind(' ') + 1) : named);
}

TEST(FailureLine, IsOneLineThatSaysWhatTheDescriptionLeavesOutAndTheCodeFollowsTheKind) {
    for (const auto& [error, code, line] : std::vector<std::tuple<Error, ExitCode, std::string>>{
             {{5, "Korvane", "Invalid call"}, ExitCode::instrument, "measure: error 5: Invalid call"},
             {{7, "A\nB", "\r\n"}, ExitCode::internal_fault, "A; B: error 7: no description"},
             {{-821, "Verify", "Too few ions.\r\n\r\nBottle B may\nbe empty"},
              ExitCode::check_failed,
              "Verify: error -821: Too few ions. Bottle B may; be empty"},
             {{-906, "", ""},
              ExitCode::configuration,
              "measure: error -906: this parameter group is not permitted here (base folder /base)"},
             {{-904, "Store", "Failed to load /base/TuneParams.xml"},
              ExitCode::configuration,
              "Store: error -904: Failed to load /base/TuneParams.xml"}}) {
        EXPECT_EQ(exit_code_of(error), code) << line;
        EXPECT_EQ(failure_line(error, "measure", "/base"), "korvane: " + line);
    }
}

// A fault done to one file of a fresh base folder, and what has to come of it.
struct BrokenBase {
    std::string file;
    std::string old;   ///< of its text; empty: all of it
    std::string text;  ///< in its place; "-" for all of it: no file
    std::string command;
    int code;
    std::string named;  ///< in the line
};

TEST(Failures, BrokenBaseFoldersEndInTheirExitCodeAndOneLine) {
    const std::string params = "TuneParams.xml", prefs = "TunePreferences.xml",
                      lists = "MassLists/default_calibration_mass_list.xml";
    const std::vector<BrokenBase> cases{
        {params, "", "<QTOFTuneParams><a>", "measure", 3, params},
        {params, "", "-", "measure", 3, params},
        {prefs, "", "<Tune", "measure", 3, prefs},
        {prefs, "", "-", "abort status", 3, prefs},
        {prefs, "AbortFlag>0</AbortFlag", "A/", "abort request", 3, "AbortFlag"},
        {params, "MinimumAcceptableAbundance>", "MinimumAcceptableAbundance>many", "measure", 3, "many"},
        {params, "PeakFindWindowInPercentT>", "PeakFindWindowInPercentT>x", "measure", 3, "PeakFindWindowInPercentT"},
        {lists, "", "-", "measure", 3, "default_calibration"},
        {lists, "", "<QTOF_MassListConfiguration/>", "measure", 3, "ESI"},
        {lists, "158.9640", "heavy!!!", "measure", 3, "heavy"},
        {"scene.json", "", "{", "measure", 3, "scene.json"},
        {"instrument.json", "", "[]", "state", 3, "instrument.json"},
        {lists, "", "-", "masslist check", 3, "default_calibration"},
        {"scene.json", "", R"({"background": {"count": 0}})", "peak 2000", 4, "No peaks"},
        {"scene.json", "", R"({"instrument": {"spectrum_duration_ns": 35000}})",
         "measure --mass 294.9388 --mass 566.8885", 2, "566.8885"},
        {"scene.json", "", R"({"sample": {"calibrant_factor": 0}})", "verify", 1, "Bottle B"},
        {"scene.json", "", R"({"sample": {"calibrant_factor": 0}, "background": {"count": 0}})",
         "calibration fit --apply", 4, "a fit needs 3 calibrants with peaks; there are 0"},
        {"PreviousCalibration.json", "", R"({"Positive": {"A": "x"}})", "calibration undo", 3,
         "Positive: A is no number"},
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
         "setpoint set FragmentTune 200 --until-set", 5, "-807"}};
    for (const BrokenBase& broken : cases) {
        const ProgramTest program;
        const fs::path file = program.base / broken.file;
        std::string content = broken.old.empty() ? broken.text : read_text(file);
        if (!broken.old.empty()) content.replace(content.find(broken.old), broken.old.size(), broken.text);
        write_text(file, content);
        if (broken.text == "-") fs::remove(file);
        Platform system = make_platform(nullptr);
        system.clock = std::make_shared<VirtualClock>();
        expect_failure(program.run(broken.command, system), broken.code, broken.named);
    }
}

TEST(Failures, StoresMassListsAndAbortFlagDoNotNeedTheInstrument) {
    const ProgramTest program;
    program.scene("{");
    write_text(program.base / "instrument.json", "[]");
    for (const char* command : {"prefs list", "params get Misc SettlingTime", "masslist show --all", "abort request",
                                "abort reset", "params list --replay /nowhere/run.mzML"})
        EXPECT_EQ(program.run(command).code, 0) << command;
}

TEST(Failures, ALayerThatCannotBeHadIsNamedAndNoOtherFolderTaken) {
    const ProgramTest program;
    const EnvironmentVariable named("KORVANE_INSTRUMENT", "/nowhere/layer.so");
    const EnvironmentVariable base("KORVANE_BASE", program.base.string());
    for (const char* command : {"state", "prefs get AbortFlag", "prefs list", "params get Misc SettlingTime",
                                "abort request", "masslist check", "conform"})
        expect_failure(run_program(command), 3, "/nowhere/layer.so");
    EXPECT_EQ(program.run("prefs get AbortFlag").out, "0\n") << "--base asks for the embedded instrument";
}

TEST(MassList, CheckFindsEveryFault) {
    const ProgramTest program;
    write_text(program.base / "MassLists" / "default_calibration_mass_list.xml",
               "<QTOF_MassListConfiguration>"
               "<Configuration IonSource='A' IonPolarity='Positive'><MassList><mass Used='1'>3</mass>"
               "<mass Used='1'>2</mass><mass Used='1'>heavy</mass><mass Used='1'>4</mass></MassList></Configuration>"
               "<Configuration IonSource='B' IonPolarity='Negative'/></QTOF_MassListConfiguration>");
    const Outcome check = program.run("masslist check --json");
    EXPECT_EQ(check.code, 1);
    EXPECT_EQ(check.json()["faults"],
              (nlohmann::json{"A, Positive: 2 does not ascend", "A, Positive: \"heavy\" is not a mass",
                              "B, Negative: 0 masses, fewer than 4"}));
}

TEST(Units, HaveOneSpellingBehindWhatTheyMeasureInEveryTable) {
    const ProgramTest program;
    const std::regex other_spelling(
        "(^|[ ,])(mz|u|Da|usec|us|nsec|percent)([ ,]|$)|(m/z|ppm|ns|µs|amu|counts|%|days) [^t]");
    for (const char* command :
         {"measure --keep", "peaks", "peak 566.8885", "setpoint list", "masslist show", "calibration show",
          "calibration show --repeat 2", "calibration fit --spectra 1", "history show", "history diff last",
          "trend height", "adjust FragmentTune --mz 566.8885 --target 50000 --max 175", "logs prune --older-than 1d"}) {
        const std::string printed = program.run(command + std::string(" --csv")).out;
        EXPECT_GT(std::ranges::count(printed, ','), 0) << command;
        const std::string titles = printed.substr(0, printed.find('\n'));
        EXPECT_FALSE(std::regex_search(titles, other_spelling)) << command << ": " << titles;
    }
    EXPECT_EQ(program.run("state").out.find("usec"), std::string::npos);
}

TEST(Measure, AListMayHoldMassesThatTheSpectrumDoesNotReachOrShow) {
    const ProgramTest program;
    program.scene(R"({"instrument": {"spectrum_duration_ns": 35000}})");  // ends at m/z 409
    const nlohmann::json peak = program.run("measure --json").json()["peaks"][2];
    EXPECT_FALSE(peak["found"].get<bool>());
    EXPECT_TRUE(peak["ppm"].is_null());
}

TEST(Terminal, ShowsTheSearchAsABarAndWhatIsWaitedForAfterASecond) {
    const ProgramTest program;
    const auto on_terminal = [&](const char* command) { return program.run(command, make_platform(nullptr), true); };
    const Outcome search = on_terminal("adjust FragmentTune --mz 566.8885 --target 50000 --max 175");
    EXPECT_NE(search.err.find("\r[###.....................] probe 1: "), std::string::npos) << search.err;
    EXPECT_EQ(search.out.find("["), std::string::npos);
    program.scene(R"({"instrument": {"spectrum_period_ms": 1100}})");
    const std::string err = on_terminal("measure --mass 230").err;
    EXPECT_NE(err.find("\rwaiting for "), std::string::npos) << err;
    EXPECT_NE(err.find("\r\x1b[KESI, "), std::string::npos) << "the line stays: " << err;
}

TEST(AbortFlag, StopsWhatMovesOrMeasuresBeforeItWritesAndNothingThatOnlyReads) {
    const ProgramTest program;
    program.run("abort request");
    const auto state = program.base / "instrument.json";
    for (const std::string command :
         {"measure", "peak 566.8885", "verify", "record run.mzML", "conform", "calibration show --repeat 2",
          "calibration set --default", "calibration fit", "calibration undo", "setpoint set FragmentTune 100",
          "adjust FragmentTune --mz 566.8885 --target 50000"}) {
        const Outcome run = program.run(command + " --json");
        EXPECT_EQ(run.code, 6) << command;
        EXPECT_EQ(run.json()["error"]["kind"], "aborted") << command;
        EXPECT_NE(run.err.find("korvane abort reset"), std::string::npos) << command << run.err;
        EXPECT_FALSE(fs::exists(state) || fs::exists("run.mzML")) << command;
    }
    for (const char* command :
         {"state", "setpoint list", "setpoint get FragmentTune", "calibration show", "prefs list"})
        EXPECT_EQ(program.run(command).code, 0) << command;
}

TEST(Adjust, GivesTheInstrumentBackUnlessItIsAskedToKeepAFoundValue) {
    const ProgramTest program;
    program.run("setpoint set FragmentTune 180");
    program.run("prefs set AIC_RunFastVersion Yes");  // for the quadrupole, and no other setpoint
    const auto setpoints = [&] { return program.run("setpoint list --csv").out; };
    std::string before = setpoints();
    const std::string adjust = "adjust fragmentor --max 175 --no-progress --json --mz ";
    const std::string within = "within tolerance", out = "out of reach", none = "no signal at this mass",
                      wrong = "wrong direction";
    for (const auto& [rest, code, moved, end] :
         {std::tuple{"566.8885 --target 50000 --dry-run", 0, true, within},
          {"566.8885 --target 1e9 --apply", 1, true, out},
          {"566.8885 --target 1e9 --apply --method secant", 1, true, out},
          {"700 --target 1 --apply --method secant", 1, true, none},
          {"566.8885 --target 50000 --raise-to-reduce --apply", 1, true, wrong},
          {"566.8885 --target 50000 --raise-to-reduce --apply --method secant", 1, true, out},
          {"566.8885 --target 50000 --apply", 0, false, within},
          {"566.8885 --target 60000 --apply --method secant", 0, false, within}}) {
        const Outcome run = program.run(adjust + rest);
        EXPECT_EQ(run.code, code) << rest << run.err;
        // The secant itself gives back what it does not keep.
        const bool is_told = moved && std::string_view(rest).find("secant") == std::string_view::npos;
        EXPECT_EQ(run.json().contains("put_back"), is_told) << run.out;
        EXPECT_EQ(run.json().contains("error"), code == 1) << run.out;
        EXPECT_EQ(run.json()["end"], end) << rest;
        EXPECT_EQ(run.json()["reached_abundance"].is_number(), code == 0) << run.out;
        EXPECT_EQ(setpoints() == before, moved) << rest;
        before = setpoints();
    }
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
