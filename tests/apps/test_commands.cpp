// What the documents' examples do not show.
#include <gtest/gtest.h>

#include "program_run.h"

namespace korvane::program {
namespace {

TEST(MassList, CheckFindsEveryFault) {
    const ProgramTest program;
    write_text(program.base / "MassLists" / "default_calibration_mass_list.xml",
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

TEST(Verify, FailsWithTheOperatorsMessageAsJsonToo) {
    const ProgramTest program;
    program.scene(R"({"sample": {"calibrant_factor": 0}})");
    const Outcome run = program.run({"verify", "--json"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.json()["valid"], false);
    EXPECT_NE(run.out.find("Insufficient number of calibrant ions"), std::string::npos) << run.out;
}

TEST(Measure, AListMayHoldMassesThatTheSpectrumDoesNotReachOrShow) {
    const ProgramTest program;
    program.scene(R"({"instrument": {"spectrum_duration_ns": 35000}})");  // ends at m/z 409
    const nlohmann::json peaks = program.run({"measure", "--json"}).json()["peaks"];
    EXPECT_TRUE(peaks[1]["found"].get<bool>());
    EXPECT_FALSE(peaks[2]["found"].get<bool>());
    EXPECT_TRUE(peaks[2]["ppm"].is_null());
    EXPECT_EQ(peaks[2]["ns"]["pkHeight"], 0);
    EXPECT_NE(program.run({"measure"}).out.find(" no peak "), std::string::npos);
}

TEST(Adjust, DrawsABarOnATerminalOnly) {
    const ProgramTest program;
    const Outcome run = run_program({"adjust", "FragmentTune", "--mz", "566.8885", "--target", "50000", "--max", "175",
                                     "--base", program.base.string()},
                                    true);
    EXPECT_NE(run.err.find("\r[###.....................] probe 1: "), std::string::npos) << run.err;
    EXPECT_EQ(run.out.find("["), std::string::npos);
}

}  // namespace
}  // namespace korvane::program
