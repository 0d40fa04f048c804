// A setpoint as the commands see it: found by a text, checked before it is written, read back afterwards; and a mark in
// the base folder while a search has the instrument reduced, so that a run tells when one never ended.
#pragma once

#include <cstdint>

#include "commands.h"

namespace korvane::program {

struct SetpointDescription {
    std::int32_t index = 0;
    std::string internal_name, external_name;
    double value = 0, lower = 0, upper = 0, resolution = 0;
    std::string type;  // "double", "int32", "int16", or "type <code>"
};

/// The setpoint that a text means: its index, its internal name, or either name in any case. A usage error when the
/// instrument has none such.
SetpointDescription setpoint_named(Session& session, const std::string& text);

/// A usage error naming the setpoint.
void require_within_limits(const SetpointDescription& setpoint, double value);

/// The value that the instrument shows; a time-out where it is not the one set.
double followed_value(Session& session, const SetpointDescription& setpoint, double wanted);

/// The positional that names one.
CLI::Option* add_setpoint(CLI::App& command, std::string& setpoint);

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
