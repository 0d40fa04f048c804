// How the program ends: exit codes, which error ends in which, and signals that ask it to stop.
#pragma once

#include <string>
#include <string_view>

#include "korvane/error.h"

namespace korvane::program {

enum class ExitCode : int {
    done = 0,
    check_failed = 1,
    usage = 2,
    configuration = 3,
    instrument = 4,
    time_out = 5,
    aborted = 6,
    internal_fault = 70,
};

ExitCode exit_code_of(const Error& error);

/// "usage", "configuration", "instrument", "time_out", "aborted" or "internal".
const char* kind_name(ErrorKind kind);

/// The codes and their meaning, a line each, for the help text.
std::string exit_code_help();

/// A text of several lines as one: sentences follow each other, other lines are set apart.
std::string joined_lines(std::string_view text);

/// One line: routine, number, description. `command` stands for the routine where the error names none. Line breaks of
/// the description are joined; a configuration error that does not name its place gets the base folder (unless empty).
std::string failure_line(const Error& error, const std::string& command, const std::string& base_folder = {});

/// From now on signals that ask the program to stop are noted, so that it can give back the instrument first: Ctrl-C,
/// SIGTERM, SIGHUP, a closed pipe; on Windows Ctrl-C, Ctrl-Break and the closing of the console. Those that are ignored
/// stay so.
void note_stop_signals();
/// The first that came, 0 without: 2 (Ctrl-C), 15 (SIGTERM, Ctrl-Break), 1 (SIGHUP, a closed console), 13 (a closed
/// pipe). The program's exit code is 128 more.
int stop_signal();
/// "Ctrl-C" and so on; for a closed pipe nothing, since nobody reads it.
std::string stop_name(int signal);

}  // namespace korvane::program
