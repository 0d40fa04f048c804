// The program as a function, so that tests can run it in their own process.
#pragma once

#include "session.h"

namespace korvane::program {

/// Reads the arguments (UTF-8, the program's name first), runs the command, returns the exit code. Never throws.
int run_command_line(int argc, const char* const* argv, Streams streams, Platform system = make_platform(nullptr));

}  // namespace korvane::program
