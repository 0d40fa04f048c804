// The examples of README, docs and the help texts, run in a shell as a reader would, and what they print compared.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "program_run.h"

namespace korvane::program {
namespace {

namespace fs = std::filesystem;

struct Example {
    std::string command, printed;
};

/// The lines "$ command" of blocks "```console", each with the lines below it. No other block may call the program.
std::vector<Example> examples_in(const fs::path& document) {
    std::vector<Example> examples;
    std::string block;
    for (const std::string& line : read_lines(document)) {
        if (line.starts_with("```"))
            block = block.empty() ? line : "";
        else if (block == "```sh")
            EXPECT_FALSE(line.starts_with("korvane ")) << document << ": its output is not compared: " << line;
        else if (block == "```console" && line.starts_with("$ "))
            examples.push_back({line.substr(2), ""});
        else if (block == "```console")
            examples.back().printed += line + "\n";
    }
    return examples;
}

/// "..." in the expected text stands for any text.
bool matches(const std::string& text, const std::string& expected) {
    const std::string gap = "...";
    std::size_t begin = 0, at = 0;
    for (;;) {
        const std::size_t end = std::min(expected.find(gap, begin), expected.size());
        const std::string piece = expected.substr(begin, end - begin);
        if (end == expected.size())
            return begin == 0 ? text == piece : text.size() >= at + piece.size() && text.ends_with(piece);
        const std::size_t found = text.find(piece, at);
        if (found == std::string::npos || (begin == 0 && found != 0)) return false;
        at = found + piece.size();
        begin = end + gap.size();
    }
}

/// A reader's shell: the program is on the path, KORVANE_BASE a fresh base folder in the working folder.
struct Shell : EmbeddedBase {
    Shell() { fs::create_directory_symlink(fs::path(KORVANE_SOURCE_DIR) / "scripts", folder.path() / "scripts"); }
    /// What the lines print on both streams.
    std::string run(const std::string& lines) const {
        const std::string here = folder.path().string(), program = fs::path(KORVANE_PROGRAM).parent_path().string();
        write_text(folder.path() / "lines", lines);
        EXPECT_NE(
            std::system(("cd '" + here + "' && env -u KORVANE_INSTRUMENT -u KORVANE_TRACE LC_ALL=C HOME='" + here +
                         "' KORVANE_BASE='" + here + "/base' PATH='" + program + "':\"$PATH\" sh lines > printed 2>&1")
                            .c_str()),
            -1);
        return read_text(folder.path() / "printed");
    }
};

class Documents : public testing::TestWithParam<std::string> {};

TEST_P(Documents, ExamplesPrintWhatTheDocumentSays) {
    const Shell shell;
    std::string exports;  // which stay for the commands behind them
    for (const Example& example : examples_in(fs::path(KORVANE_SOURCE_DIR) / GetParam())) {
        if (example.command.starts_with("export ")) exports += example.command + "\n";
        const std::string printed = shell.run(exports + example.command);
        EXPECT_TRUE(matches(printed, example.printed)) << "$ " << example.command << "\n"
                                                       << printed << "--- but the document says\n"
                                                       << example.printed;
    }
}

std::vector<std::string> documents() {
    std::vector<std::string> found{"README.md"};
    for (const auto& entry : fs::directory_iterator(fs::path(KORVANE_SOURCE_DIR) / "docs"))
        if (entry.path().extension() == ".md") found.push_back("docs/" + entry.path().filename().string());
    return found;
}

INSTANTIATE_TEST_SUITE_P(All, Documents, testing::ValuesIn(documents()));

/// The calls of the program that a help text shows.
std::vector<std::string> calls_in(const std::string& help) {
    std::vector<std::string> calls;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("  korvane ") || line.starts_with("  export "))
            calls.push_back(line.substr(2, line.find("   ", 2) - 2));
    return calls;
}

TEST(Help, TheFirstSessionRuns) {
    std::string session = "set -e\n";
    for (const std::string& call : calls_in(run_program("--help").out)) session += call + "\n";
    const std::string printed = Shell().run(session);
    EXPECT_TRUE(matches(printed, ".../tune\n...ready\n...today.mzML\n...reaches minimum  quality  verdict\n..."))
        << printed;
}

TEST(Help, EveryCommandHasAnExampleThatTheDocumentsRun) {
    std::set<std::string> documented;
    for (const Example& example : examples_in(fs::path(KORVANE_SOURCE_DIR) / "docs/command-line.md"))
        documented.insert(example.command);
    std::istringstream commands(
        "init,state,measure,peak,peaks,verify,adjust,setpoint get,setpoint set,setpoint list,params get,"
        "params set,params list,prefs get,prefs set,prefs list,masslist show,masslist set,masslist check,"
        "calibration show,calibration set,calibration fit,calibration undo,plot,abort request,abort reset,"
        "abort status,record,automation list,history list,history show,history mark,tune,report");
    for (std::string command; std::getline(commands, command, ',');) {
        const std::string help = run_program(command + " --help").out;
        EXPECT_NE(help.find("--json"), std::string::npos) << command;
        ASSERT_EQ(calls_in(help).size(), 1U) << help;
        EXPECT_TRUE(calls_in(help).front().starts_with("korvane " + command)) << help;
        EXPECT_TRUE(documented.count(calls_in(help).front())) << calls_in(help).front() << " is not documented";
    }
}

TEST(Completion, AsksTheProgramForWhatMayStandNext) {
    std::string lines = ". '" KORVANE_SOURCE_DIR "/data/completions/korvane.bash'\ncompopt() { :; }\n", expected;
    for (const auto& [words, completed] : {std::pair{"mesu", ""},
                                           {"meas", "measure"},
                                           {"params get RampParams ''", "MinimumAcceptableAbundance"},
                                           {"--seed 3 setpoint set --json Frag", "FragmentTune"},
                                           {"setpoint set FragmentTune --unt", "--until-set"},
                                           {"measure --mass 158", "158.964"},
                                           {"masslist show --polarity Neg", "Negative"},
                                           {"call TuneGlobals.QuadT", "TuneGlobals.QuadType"},
                                           {"setpoint get Frag --base nowhere", ""},
                                           {"--base nowhere setpoint get Frag", ""},
                                           {"--replay lin", "lines"}}) {
        lines += std::string("COMP_WORDS=(korvane ") + words + ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_korvane\n";
        lines += "echo \"${COMPREPLY[*]}\"\n";
        expected += completed + std::string("\n");
    }
    const Shell shell;
    write_text(shell.folder.path() / "completion", lines);
    EXPECT_EQ(shell.run("bash completion"), expected);
}

}  // namespace
}  // namespace korvane::program
