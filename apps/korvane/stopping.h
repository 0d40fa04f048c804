// Requests to stop a command: signals, the console's events, and the abort flag.
#pragma once

#include <string>

namespace korvane::program {

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
