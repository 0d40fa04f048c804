// What the program says of itself: the names that there are, what was probably meant by one that there is not, and the
// words that may stand next.
#pragma once

#include <CLI/CLI.hpp>

#include "korvane/instrument.h"
#include "session.h"

namespace korvane::program {

inline constexpr const char* autotune_tree = "AutotuneParameters";

using WordList = std::vector<std::string>;

/// What an argument may be, by its name or that of its kind, behind the arguments given: SETPOINT (internal names),
/// GROUP and KEY of a tree of the tune parameters, NAME of a preference, MEMBER ("CLASS.MEMBER"), MASS, RECORD,
/// --source and so on; `*files` stands for names of files. What cannot be found out is left out.
WordList names_for(Session& session, const std::string& kind, const WordList& given = {},
                   const std::string& tree = autotune_tree);

/// "; did you mean A?", or "A or B?" of those equally near, without regard to case; empty where none is near.
std::string did_you_mean(std::string_view word, const WordList& known);

/// Runs the work; its error gets what was probably meant by the words, each with the name of its kind.
void suggesting(Session& session, const std::vector<std::pair<const char*, std::string>>& words,
                const std::function<void()>& work, const std::string& tree = autotune_tree);

/// The commands of a group, or the options that a command takes.
WordList words_that_may_follow(const CLI::App& command, bool options);

/// Words that may stand in the place of the last one, which may be begun: commands, options, and `names_for` an
/// argument.
WordList completions(Session& session, CLI::App& program, const WordList& words);

}  // namespace korvane::program
