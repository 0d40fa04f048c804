// The examples of the documents and of the help texts, run one after the other on one base folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "program_run.h"

namespace korvane::program {
namespace {

/// The words of every line that calls the program, up to the shell's "&&" or a comment two blanks further on.
std::vector<std::vector<std::string>> calls_in(const std::string& text) {
    std::vector<std::vector<std::string>> calls;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto begin = line.find_first_not_of(' ');
        if (begin == std::string::npos || line.compare(begin, 8, "korvane ") != 0) continue;
        const auto end = std::min(line.find(" && "), line.find("  ", begin));
        std::istringstream words(line.substr(begin + 8, end == std::string::npos ? end : end - begin - 8));
        calls.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return calls;
}

/// The text between the lines "```sh" and "```".
std::string shell_blocks(const std::string& markdown) {
    std::string text;
    bool inside = false;
    std::istringstream lines(markdown);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```"))
            inside = line == "```sh";
        else if (inside)
            text += line + "\n";
    }
    return text;
}

void expect_to_run(const ProgramTest& program, const std::vector<std::vector<std::string>>& calls) {
    for (const auto& words : calls) {
        if (words.front() == "init") continue;  // its folder is somebody's
        const Outcome run = program.run(words);
        EXPECT_EQ(run.code, 0) << testing::PrintToString(words) << ": " << run.err;
        program.run({"abort", "reset"});
    }
}

class InFolder {
public:
    explicit InFolder(const std::filesystem::path& folder) : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    ~InFolder() { std::filesystem::current_path(before_); }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;

private:
    std::filesystem::path before_;
};

TEST(Examples, OfTheDocumentRun) {
    const ProgramTest program;
    const InFolder working(program.folder.path());
    const auto calls =
        calls_in(shell_blocks(read_text(std::filesystem::path(KORVANE_SOURCE_DIR) / "docs/command-line.md")));
    EXPECT_GT(calls.size(), 20U);
    expect_to_run(program, calls);
}

TEST(Examples, OfTheCommandsHelpRun) {
    const ProgramTest program;
    const InFolder working(program.folder.path());
    std::string examples;
    for (const char* command :
         {"state",           "measure",       "peak",          "verify",       "adjust",         "setpoint get",
          "setpoint set",    "setpoint list", "params get",    "params set",   "params list",    "prefs get",
          "prefs set",       "prefs list",    "masslist show", "masslist set", "masslist check", "calibration show",
          "calibration set", "abort request", "abort reset",   "abort status", "record",         "automation list"}) {
        std::vector<std::string> words = calls_in("korvane " + std::string(command)).front();
        words.push_back("--help");
        const Outcome help = run_program(words);
        EXPECT_EQ(help.code, 0) << command;
        EXPECT_NE(help.out.find("--json"), std::string::npos) << command;
        const std::string heading = "Example:\n  korvane " + std::string(command);
        const auto example = help.out.find(heading);
        ASSERT_NE(example, std::string::npos) << help.out;
        examples += help.out.substr(example);
    }
    expect_to_run(program, calls_in(examples));
}

TEST(Examples, OfTheProgramsHelpRun) {
    const ProgramTest program;
    const InFolder working(program.folder.path());
    const Outcome help = run_program({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("70 internal fault"), std::string::npos);
    const auto calls = calls_in(help.out);
    EXPECT_GT(calls.size(), 15U);
    expect_to_run(program, calls);
}

}  // namespace
}  // namespace korvane::program
