#include "stopping.h"

#include <csignal>

#ifdef _WIN32
#include <windows.h>
#endif

namespace korvane::program {

namespace {

volatile std::sig_atomic_t noted_signal = 0;

void note(int signal) {
    if (noted_signal == 0) noted_signal = signal;
}

}  // namespace

#ifdef _WIN32

namespace {

BOOL WINAPI note_console_event(DWORD event) {
    constexpr int hang_up = 1;
    note(event == CTRL_C_EVENT ? SIGINT : event == CTRL_BREAK_EVENT ? SIGTERM : hang_up);
    // The process ends when this returns from the closing of the console.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

void note_stop_signals() {
    SetConsoleCtrlHandler(note_console_event, TRUE);
}

#else

void note_stop_signals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;
        action.sa_handler = note;
        action.sa_flags = 0;  // who waits for input is to wake up
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGXFSZ, SIG_IGN);  // a limit of file size is an error as a full disk is
}

#endif

int stop_signal() {
    return noted_signal;
}

std::string stop_name(int signal) {
    constexpr int hang_up = 1;
    return signal == hang_up ? "SIGHUP" : signal == SIGINT ? "Ctrl-C" : signal == SIGTERM ? "SIGTERM" : "";
}

}  // namespace korvane::program
