#include <iostream>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "command_line.h"

namespace {

bool standard_error_is_terminal() {
#ifdef _WIN32
    return _isatty(2) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

}  // namespace

int main(int argc, char** argv) {
    return korvane::program::run_command_line(argc, argv, {std::cout, std::cerr, standard_error_is_terminal()});
}
