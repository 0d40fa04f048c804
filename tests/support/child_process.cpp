#include "support/child_process.h"

#ifdef _WIN32
#include "platform/windows_text.h"
#else
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#endif

#include <stdexcept>

namespace korvane {

#ifdef _WIN32

namespace {

/// For words without quotes and final backslashes, which no test has.
std::wstring command_line(const std::vector<std::string>& words) {
    std::wstring line;
    for (const std::string& word : words) {
        if (word.find('"') != std::string::npos || word.ends_with('\\')) throw std::invalid_argument(word);
        line += (line.empty() ? L"\"" : L" \"") + utf16_from_utf8(word) + L"\"";
    }
    return line;
}

HANDLE inherited_file(const std::string& path) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const HANDLE file = CreateFileW(utf16_from_utf8(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                    &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot make " + path);
    return file;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& words, const std::string& output) {
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = inherited_file(output + ".out");
    start.hStdError = inherited_file(output + ".err");
    PROCESS_INFORMATION made{};
    std::wstring line = command_line(words);
    const bool started =
        CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &made);
    CloseHandle(start.hStdOutput);
    CloseHandle(start.hStdError);
    if (!started) throw std::runtime_error("cannot start " + words.front());
    CloseHandle(made.hThread);
    process_ = made.hProcess;
}

ChildProcess::~ChildProcess() {
    kill();
    CloseHandle(process_);
}

bool ChildProcess::is_running() {
    return WaitForSingleObject(process_, 0) == WAIT_TIMEOUT;
}

void ChildProcess::kill() {
    if (!is_running()) return;
    killed_ = TerminateProcess(process_, 9) != 0;
    WaitForSingleObject(process_, INFINITE);
}

int ChildProcess::exit_code() {
    WaitForSingleObject(process_, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process_, &code);
    return killed_ ? -9 : static_cast<int>(code);
}

#else

ChildProcess::ChildProcess(const std::vector<std::string>& words, const std::string& output) {
    std::vector<std::string> own_words = words;
    std::vector<char*> arguments;
    for (std::string& word : own_words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {1, 2})
        posix_spawn_file_actions_addopen(&actions, stream, (output + (stream == 1 ? ".out" : ".err")).c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int fault = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (fault != 0) throw std::runtime_error("cannot start " + words.front());
}

ChildProcess::~ChildProcess() {
    kill();
}

bool ChildProcess::is_running() {
    if (!ended_) ended_ = waitpid(process_, &status_, WNOHANG) == process_;
    return !ended_;
}

void ChildProcess::kill() {
    if (!is_running()) return;
    ::kill(process_, SIGKILL);
    exit_code();
}

int ChildProcess::exit_code() {
    if (!ended_) ended_ = waitpid(process_, &status_, 0) == process_;
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
}

#endif

}  // namespace korvane
