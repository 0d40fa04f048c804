#include "program_run.h"

#include <sstream>

#include "support/virtual_clock.h"

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
    Outcome result;
    result.code =
        run_command_line(static_cast<int>(words.size()), words.data(), {out, err, terminal}, std::move(system));
    result.out = out.str();
    result.err = err.str();
    return result;
}

ProgramTest::ProgramTest() : base(folder.path() / "base") {
    create_base_folder(base);
}

Outcome ProgramTest::run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--base", base.string()});
    return run_program(arguments);
}

Outcome ProgramTest::run_without_waiting(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--base", base.string()});
    Platform system = make_platform(nullptr);
    system.clock = std::make_shared<VirtualClock>();
    return run_program(arguments, false, system);
}

void ProgramTest::scene(const std::string& json) const {
    write_text(base / "scene.json", json);
}

}  // namespace korvane::program
