// Runs the program's commands in the test's own process, on a base folder of the test's own.
#pragma once

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "command_line.h"
#include "support/test_platform.h"

namespace korvane::program {

struct Outcome {
    int code = -1;
    std::string out, err;

    /// The one object on standard output.
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

/// The program called by its first words and those of the line, where '' is an empty one.
inline Outcome run_program(const std::string& line, std::vector<std::string> words = {"korvane"}, bool terminal = false,
                           Platform system = make_platform(nullptr)) {
    std::istringstream text(line);
    words.insert(words.end(), std::istream_iterator<std::string>(text), {});
    std::ranges::replace(words, std::string("''"), std::string());
    std::vector<const char*> arguments;
    for (const std::string& word : words) arguments.push_back(word.c_str());
    std::ostringstream out, err;
    const int code =
        run_command_line(static_cast<int>(arguments.size()), arguments.data(), {out, err, terminal}, std::move(system));
    return {code, out.str(), err.str()};
}

struct ProgramTest : EmbeddedBase {
    /// With --base; the option goes in front, where it is read in any case.
    Outcome run(const std::string& line, Platform system = make_platform(nullptr), bool terminal = false) const {
        return run_program(line, {"korvane", "--base", base.string()}, terminal, std::move(system));
    }
    void scene(const std::string& json) const { write_text(base / "scene.json", json); }
};

}  // namespace korvane::program
