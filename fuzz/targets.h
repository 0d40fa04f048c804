// Entry points of the fuzzers: each takes one input and returns, whatever the input is. What they may raise is caught
// inside; anything else (a crash, a hang, a sanitizer report, a broken promise) is a find.
#pragma once

#include <string_view>
#include <utility>

#include "korvane/error.h"

namespace korvane::fuzz {

/// Whether it runs through; a refusal is an answer, too.
template <class Body>
bool passes(Body&& body) {
    try {
        body();
        return true;
    } catch (const Error&) {
        return false;
    }
}

/// A query, a line feed, the content of TuneParams.xml.
void parameters(std::string_view input);
/// A preference name, a line feed, the content of TunePreferences.xml.
void preferences(std::string_view input);
/// A mass-list file: open, edit, save and load again have to agree.
void masslist(std::string_view input);
/// A state or scene file of the simulator.
void state(std::string_view input);
/// A recording, read and put on its flight-time axis.
void recording(std::string_view input);
/// A member ("CLASS.MEMBER", or the number of its place in the tables) and its arguments, a line each.
void automation_call(std::string_view input);

inline constexpr std::pair<std::string_view, void (*)(std::string_view)> targets[] = {
    {"parameters", parameters}, {"preferences", preferences}, {"masslist", masslist},
    {"state", state},           {"recording", recording},     {"automation_call", automation_call}};

}  // namespace korvane::fuzz
