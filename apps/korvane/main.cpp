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

namespace {

/// Texts are UTF-8, also on the console, which gets its code page back.
class ConsoleCodePage {
public:
    ConsoleCodePage() : before_(GetConsoleOutputCP()) {
        if (before_ != 0) SetConsoleOutputCP(CP_UTF8);
    }
    ~ConsoleCodePage() {
        if (before_ != 0) SetConsoleOutputCP(before_);
    }
    ConsoleCodePage(const ConsoleCodePage&) = delete;
    ConsoleCodePage& operator=(const ConsoleCodePage&) = delete;

private:
    UINT before_;
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    std::vector<const char*> words;
    for (int i = 0; i < argc; ++i) arguments.push_back(korvane::program::utf8_of(argv[i]));
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    const ConsoleCodePage utf8;
    korvane::program::note_stop_signals();
    return korvane::program::run_command_line(argc, words.data(), {std::cout, std::cerr, _isatty(2) != 0},
                                              korvane::automation::with_system_tracer(korvane::make_platform(nullptr)));
}

#else

int main(int argc, char** argv) {
    std::setlocale(LC_TIME, "");  // the dates in the headers of logs
    korvane::program::note_stop_signals();
    return korvane::program::run_command_line(argc, argv, {std::cout, std::cerr, isatty(STDERR_FILENO) != 0, true});
}

#endif
