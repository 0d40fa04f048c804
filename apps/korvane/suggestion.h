// What was probably meant by a word that is none of those there are.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/error.h"

namespace korvane::program {

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
