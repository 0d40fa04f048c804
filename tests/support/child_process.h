// Another process, started, watched and killed: the same on every system.
#pragma once

#include <string>
#include <vector>

namespace korvane {

class ChildProcess {
public:
    /// `words`: the program and its arguments, UTF-8. What it prints goes to `output` + ".out" and ".err".
    ChildProcess(const std::vector<std::string>& words, const std::string& output);
    /// Kills it where it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool is_running();
    /// As the system kills: the process has no say in it.
    void kill();
    /// Waits for the end; negative where the process did not end by itself.
    int exit_code();

private:
#ifdef _WIN32
    void* process_ = nullptr;
    bool killed_ = false;
#else
    int process_ = -1;
    int status_ = 0;
    bool ended_ = false;
#endif
};

}  // namespace korvane
