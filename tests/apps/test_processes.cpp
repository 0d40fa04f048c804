// The built program, as processes.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "program_run.h"
#include "support/child_process.h"

namespace korvane::program {
namespace {

struct Running : ChildProcess {
    Running(std::vector<std::string> words, const std::string& output)
        : ChildProcess((words.insert(words.begin(), KORVANE_PROGRAM), words), output) {}
};

/// What a process printed, with line ends as in memory.
std::string printed(const std::string& file) {
    std::string text;
    for (const std::string& line : read_lines(file)) text += line + "\n";
    return text;
}

TEST(Processes, AnAbortFromElsewhereEndsARunningMeasurement) {
    ProgramTest program;
    // Nothing but spectra of the wrong polarity: without an abort the measurement would wait for 45 s.
    program.scene(R"({"instrument": {"spectrum_period_ms": 50},
                      "faults": {"wrong_polarity": {"first": 0, "count": 1000000}}})");
    Running measuring({"measure", "--base", program.base.string()}, program.folder.file("measuring"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(measuring.is_running()) << "it ended before the abort: "
                                        << printed(program.folder.file("measuring.err"));
    EXPECT_EQ(Running({"abort", "request", "--base", program.base.string()}, program.folder.file("abort")).exit_code(),
              0);
    EXPECT_EQ(measuring.exit_code(), 6);
    const std::string err = printed(program.folder.file("measuring.err"));
    EXPECT_NE(err.find("error 1: User aborted"), std::string::npos) << err;
    EXPECT_TRUE(printed(program.folder.file("measuring.out")).empty());
}

TEST(Processes, ArgumentsAndOutputAreUtf8OnEverySystem) {
    const ProgramTest program;
    const std::string name =
        "Stra\xC3\x9F"
        "e \xCE\xB2 \xE6\xB8\xAC";
    const std::string folder = utf8_of(program.folder.path() / path_of(name));
    EXPECT_EQ(Running({"init", folder}, program.folder.file("init")).exit_code(), 0)
        << printed(program.folder.file("init.err"));
    EXPECT_TRUE(std::filesystem::exists(path_of(folder) / "TuneParams.xml"));
    EXPECT_EQ(Running({"params", "list", "--base", folder + name}, program.folder.file("list")).exit_code(), 3);
    EXPECT_NE(printed(program.folder.file("list.err")).find(name + name), std::string::npos)
        << printed(program.folder.file("list.err"));
}

}  // namespace
}  // namespace korvane::program
