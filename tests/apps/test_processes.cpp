// The built program, as processes.
#ifndef _WIN32

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "program_run.h"

extern char** environ;

namespace korvane::program {
namespace {

pid_t start(std::vector<std::string> words, const std::string& output) {
    words.insert(words.begin(), KORVANE_PROGRAM);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {1, 2})
        posix_spawn_file_actions_addopen(&actions, stream, (output + (stream == 1 ? ".out" : ".err")).c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t process = -1;
    EXPECT_EQ(posix_spawn(&process, KORVANE_PROGRAM, &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return process;
}

int exit_code(pid_t process) {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(Processes, AnAbortFromElsewhereEndsARunningMeasurement) {
    ProgramTest program;
    // Nothing but spectra of the wrong polarity: without an abort the measurement would wait for 45 s.
    program.scene(R"({"instrument": {"spectrum_period_ms": 50},
                      "faults": {"wrong_polarity": {"first": 0, "count": 1000000}}})");
    const pid_t measuring = start({"measure", "--base", program.base.string()}, program.file("measuring"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    int status = 0;
    ASSERT_EQ(waitpid(measuring, &status, WNOHANG), 0)
        << "it ended before the abort: " << read_text(program.file("measuring.err"));
    EXPECT_EQ(exit_code(start({"abort", "request", "--base", program.base.string()}, program.file("abort"))), 0);
    EXPECT_EQ(exit_code(measuring), 6);
    const std::string err = read_text(program.file("measuring.err"));
    EXPECT_NE(err.find("error 1: User aborted"), std::string::npos) << err;
    EXPECT_TRUE(read_text(program.file("measuring.out")).empty());
}

TEST(Processes, TheProgramPrintsWhatTheCommandDoes) {
    const ProgramTest program;
    const std::vector<std::string> words{"measure", "--base", program.base.string(), "--seed", "5"};
    EXPECT_EQ(exit_code(start(words, program.file("run"))), 0) << read_text(program.file("run.err"));
    EXPECT_EQ(read_text(program.file("run.out")), run_program(words).out);
}

}  // namespace
}  // namespace korvane::program

#endif
