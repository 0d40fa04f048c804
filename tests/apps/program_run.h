// Runs the program's commands in the test's own process, on a base folder of the test's own.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
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
    /// Lines of `err` that report a failure or a usage fault.
    std::vector<std::string> failure_lines() const;
};

Outcome run_program(const std::vector<std::string>& arguments, bool terminal = false,
                    Platform system = make_platform(nullptr));
/// The words of a line; '' is an empty one.
std::vector<std::string> words_of(const std::string& line);

struct ProgramTest {
    ProgramTest() { create_base_folder(base); }

    /// With --base; the option goes in front, where it is read in any case.
    Outcome run(std::vector<std::string> arguments, Platform system = make_platform(nullptr)) const;
    void scene(const std::string& json) const { write_text(base / "scene.json", json); }

    TemporaryFolder folder;
    std::filesystem::path base = folder.path() / "base";
};

}  // namespace korvane::program
