// What the program says of itself: its manual pages, and the words that may stand next.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace korvane::program {

class Session;

/// Page of section 1 for man, of the program or, for one of its commands, of that. Commands have been declared.
std::string manual_page(const CLI::App& command);

/// The commands of a group, or the options that a command takes.
std::vector<std::string> words_that_may_follow(const CLI::App& command, bool options);

/// Words that may stand in the place of the last one, which may be begun: commands, options, and what the instrument,
/// the base folder and the mass list have for an argument. `*files` stands for names of files. What cannot be found out
/// is left out.
std::vector<std::string> completions(Session& session, const CLI::App& program, const std::vector<std::string>& words);

}  // namespace korvane::program
