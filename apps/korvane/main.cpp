#include <clocale>
#include <iostream>

#ifdef _WIN32
#include <io.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>
#else
#include <unistd.h>
#endif

#include "command_line.h"

#ifdef _WIN32

#include "korvane/automation.h"

int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    std::vector<const char*> words;
    for (int i = 0; i < argc; ++i) arguments.push_back(korvane::program::utf8_of(argv[i]));
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    // Texts are UTF-8, also on the console, which gets its code page back.
    const UINT before = GetConsoleOutputCP();
    if (before != 0) SetConsoleOutputCP(CP_UTF8);
    korvane::program::note_stop_signals();
    const int code =
        korvane::program::run_command_line(argc, words.data(), {std::cout, std::cerr, _isatty(2) != 0},
                                           korvane::automation::with_system_tracer(korvane::make_platform(nullptr)));
    if (before != 0) SetConsoleOutputCP(before);
    return code;
}

#else

int main(int argc, char** argv) {
    std::setlocale(LC_TIME, "");  // the dates in the headers of logs
    korvane::program::note_stop_signals();
    return korvane::program::run_command_line(argc, argv, {std::cout, std::cerr, isatty(STDERR_FILENO) != 0, true});
}

#endif
