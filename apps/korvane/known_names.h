// The names that there are, and what was probably meant by one that there is not.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/error.h"
#include "korvane/instrument.h"
#include "session.h"

namespace korvane::program {

inline constexpr const char* autotune_tree = "AutotuneParameters";

enum class SetpointNames { internal, internal_and_external };
std::vector<std::string> setpoint_names(Session& session, SetpointNames which);
/// Groups of a tree of the tune parameters, and the keys of a group. Errors as `list_tune_parameters`; so below.
std::vector<std::string> parameter_groups(Session& session, const std::string& tree);
std::vector<std::string> parameter_keys(Session& session, const std::string& tree, const std::string& group);
std::vector<std::string> preference_names(Session& session);
/// "CLASS.MEMBER" of the automation classes.
std::vector<std::string> member_names();

/// "; did you mean A?", or "A or B?" of those equally near, without regard to case; empty where none is near.
std::string did_you_mean(std::string_view word, const std::vector<std::string>& known);

/// Runs the work; its error gets what `known_words()` suggest for the word, unless the word is one of them.
template <class KnownWords, class Work>
auto suggesting(const std::string& word, KnownWords known_words, Work work) {
    try {
        return work();
    } catch (const Error& error) {
        std::vector<std::string> known;
        try {
            known = known_words();
        } catch (const Error&) {
            throw error;  // what cannot be listed has nothing to suggest
        }
        if (std::ranges::count(known, word)) throw;
        throw error.described(error.description() + did_you_mean(word, known));
    }
}

}  // namespace korvane::program
