// The built program, as processes.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "program_run.h"
#include "support/child_process.h"
#include "support/environment.h"

namespace korvane::program {
namespace {

/// The program, with its output in files of the folder.
struct Running : ChildProcess {
    Running(const ProgramTest& program, const std::string& name, std::vector<std::string> words)
        : ChildProcess((words.insert(words.begin(), KORVANE_PROGRAM), words), program.folder.file(name)),
          output(program.folder.file(name)) {}
    /// What it printed, with line ends as in memory.
    std::string printed(const char* stream) const {
        std::string text;
        for (const std::string& line : read_lines(output + stream)) text += line + "\n";
        return text;
    }
    std::string output;
};

TEST(Processes, AnAbortFromElsewhereEndsARunningMeasurement) {
    ProgramTest program;
    // Nothing but spectra of the wrong polarity: without an abort the measurement would wait for 45 s.
    program.scene(R"({"instrument": {"spectrum_period_ms": 50},
                      "faults": {"wrong_polarity": {"first": 0, "count": 1000000}}})");
    const std::string base = program.base.string();
    Running measuring(program, "measuring", {"measure", "--base", base});
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(measuring.is_running()) << "it ended before the abort: " << measuring.printed(".err");
    EXPECT_EQ(Running(program, "abort", {"abort", "request", "--base", base}).exit_code(), 0);
    EXPECT_EQ(measuring.exit_code(), 6);
    EXPECT_NE(measuring.printed(".err").find("error 1: User aborted"), std::string::npos) << measuring.printed(".err");
    EXPECT_TRUE(measuring.printed(".out").empty());
}

TEST(Processes, ArgumentsAndOutputAreUtf8OnEverySystem) {
    const ProgramTest program;
    const std::string name = "Straße β 測";
    const std::string folder = utf8_of(program.folder.path() / path_of(name));
    EXPECT_EQ(Running(program, "init", {"init", folder}).exit_code(), 0);
    EXPECT_TRUE(std::filesystem::exists(path_of(folder) / "TuneParams.xml"));
    Running list(program, "list", {"params", "list", "--base", folder + name});
    EXPECT_EQ(list.exit_code(), 3);
    EXPECT_NE(list.printed(".err").find(name + name), std::string::npos) << list.printed(".err");
}

#ifndef _WIN32
TEST(Processes, ALayerThatEndsTheProcessIsAFailedCheckThatNamesTheCall) {
    const ProgramTest program;
    const EnvironmentVariable base("KORVANE_TEST_LAYER_BASE", program.base.string()),
        crash("KORVANE_TEST_LAYER_CRASHES", "1");
    Running checks(program, "checks", {"conform", KORVANE_TEST_LAYERS "/test_layer" KORVANE_TEST_LAYER_SUFFIX});
    EXPECT_EQ(checks.exit_code(), 1);
    const std::string end = "FAIL  InstrumentGlobals.title: one line of text: the layer ends the process, signal 6\n";
    EXPECT_NE(checks.printed(".out").find(end), std::string::npos) << checks.printed(".out");
    EXPECT_TRUE(checks.printed(".out").starts_with("pass  InstrumentLayer.create_globals")) << checks.printed(".out");
}
#endif

}  // namespace
}  // namespace korvane::program
