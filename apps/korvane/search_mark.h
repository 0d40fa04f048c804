// A mark in the base folder while a search has the instrument reduced, so that a run tells when one never ended.
#pragma once

#include "session.h"

namespace korvane::program {

/// There while it lives; a process that is killed leaves it. Where it cannot be written there is none.
class SearchMark {
public:
    /// `more` are internal names of setpoints that the run may move besides.
    explicit SearchMark(Session& session, const std::vector<std::string>& more = {});
    ~SearchMark();
    SearchMark(const SearchMark&) = delete;
    SearchMark& operator=(const SearchMark&) = delete;

private:
    std::filesystem::path file_;
};

/// Setpoints that a search which was killed, or still runs, has left at other values than it found; empty without.
std::string left_reduced(Session& session);

}  // namespace korvane::program
