#include "exit_codes.h"

#include <fmt/format.h>

#include <csignal>

#ifdef _WIN32
#include <windows.h>
#endif

namespace korvane::program {

namespace {

// What the description does not say.
std::string_view remark_on(const Error& error) {
    switch (error.number()) {
        case error_number::user_aborted:
            return "the request stands until \"korvane abort reset\"";
        case error_number::polarity_timeout:
            return "no spectrum of the sought polarity within 45 s";
        case error_number::invalid_call:
            return error.kind() == ErrorKind::time_out ? "no populated spectrum within 15 s" : "";
        case error_number::preferences_unavailable:
            return "TunePreferences.xml cannot be read";
        case error_number::group_not_permitted:
            return "this parameter group is not permitted here";
    }
    return "";
}

volatile std::sig_atomic_t noted_signal = 0;

void note(int signal) {
    if (noted_signal == 0) noted_signal = signal;
}

}  // namespace

ExitCode exit_code_of(const Error& error) {
    if (error.number() == error_number::invalid_spectrum) return ExitCode::check_failed;
    using enum ExitCode;
    constexpr ExitCode codes[] = {usage, configuration, instrument, time_out, aborted, internal_fault};
    return codes[static_cast<int>(error.kind())];
}

const char* kind_name(ErrorKind kind) {
    constexpr const char* names[] = {"usage", "configuration", "instrument", "time_out", "aborted", "internal"};
    return names[static_cast<int>(kind)];
}

std::string joined_lines(std::string_view text) {
    std::string joined;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view line = text.substr(0, end);
        if (!line.empty()) {
            if (!joined.empty()) joined += std::string_view(".:;,!?").find(joined.back()) < 6 ? " " : "; ";
            joined += line;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return joined;
}

std::string exit_code_help() {
    return "Exit codes:\n"
           "  0  done\n"
           "  1  a check failed\n"
           "  2  usage\n"
           "  3  configuration or files\n"
           "  4  instrument\n"
           "  5  time-out\n"
           "  6  aborted\n"
           "  70 internal fault\n"
           "  130, 143, 129  stopped by Ctrl-C, SIGTERM, SIGHUP, after the instrument was given back\n"
           "A failure prints one line on standard error: routine, number, description.";
}

std::string failure_line(const Error& error, const std::string& command, const std::string& base_folder) {
    // Runtime faults carry the library's name as their source.
    const bool has_routine = !error.source().empty() && error.source() != "Korvane";
    std::string description = joined_lines(error.description());
    const auto add = [&](std::string_view remark) {
        if (remark.empty()) return;
        description = description.empty() ? std::string(remark) : fmt::format("{} ({})", description, remark);
    };
    add(remark_on(error));
    add(joined_lines(error.cause()));
    const bool names_folder = description.find(base_folder) != std::string::npos;  // also where there is none
    if (error.kind() == ErrorKind::configuration && !names_folder) add("base folder " + base_folder);
    return fmt::format("korvane: {}: error {}: {}", has_routine ? joined_lines(error.source()) : command,
                       error.number(), description.empty() ? "no description" : description);
}

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
