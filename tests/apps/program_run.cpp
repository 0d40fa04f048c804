#include "program_run.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace korvane::program {

std::vector<std::string> Outcome::failure_lines() const {
    std::vector<std::string> lines;
    std::istringstream text(err);
    for (std::string line; std::getline(text, line);)
        if (line.starts_with("korvane")) lines.push_back(line);
    return lines;
}

Outcome run_program(const std::vector<std::string>& arguments, bool terminal, Platform system) {
    std::vector<const char*> words{"korvane"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    std::ostringstream out, err;
    const int code =
        run_command_line(static_cast<int>(words.size()), words.data(), {out, err, terminal}, std::move(system));
    return {code, out.str(), err.str()};
}

std::vector<std::string> words_of(const std::string& line) {
    std::istringstream text(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
    std::replace(words.begin(), words.end(), std::string("''"), std::string());
    return words;
}

Outcome ProgramTest::run(std::vector<std::string> arguments, Platform system) const {
    arguments.insert(arguments.begin(), {"--base", base.string()});
    return run_program(arguments, false, std::move(system));
}

}  // namespace korvane::program
