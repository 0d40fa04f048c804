#include "program_run.h"

#include <sstream>

#include "instrument/simulator/simulator.h"
#include "support/virtual_clock.h"

namespace korvane::program {

std::vector<std::string> Outcome::failure_lines() const {
    std::vector<std::string> lines;
    std::istringstream text(err);
    for (std::string line; std::getline(text, line);)
        if (line.starts_with("korvane")) lines.push_back(line);
    return lines;
}

Outcome run_program(const std::vector<std::string>& arguments, const PlatformMaker& maker, bool terminal) {
    std::vector<const char*> words{"korvane"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    std::ostringstream out, err;
    Outcome result;
    result.code = run_command_line(static_cast<int>(words.size()), words.data(), {out, err, terminal}, maker);
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
    return run_program(arguments, [this](const EmbeddedOptions& options) {
        Platform platform = make_embedded_platform(options);
        platform.clock = std::make_shared<VirtualClock>();
        platform.instrument = make_simulator({.base_folder = base.string(),
                                              .seed = options.seed,
                                              .scene_path = (base / "scene.json").string(),
                                              .state_path = {}},
                                             platform.files, platform.clock);
        return platform;
    });
}

void ProgramTest::scene(const std::string& json) const {
    write_text(base / "scene.json", json);
}

}  // namespace korvane::program
