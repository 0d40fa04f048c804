// What a run leaves in the history, one way for every command that keeps a record; and what is drawn of it.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "korvane/control_chart.h"
#include "korvane/report.h"
#include "session.h"

namespace korvane::program {

struct KeepOptions {
    bool keep = false;
    std::string note;
};

/// The history that the command line or KORVANE_HISTORY names, else that of the base folder. Errors as `TuneHistory`;
/// where `make` is false there must be one.
TuneHistory open_history(Session& session, bool make);

inline constexpr std::size_t all_records = 1'000'000'000;

/// The record that a word names: an id, "last", "yesterday", "last-week", or a date or time in UTC, which stand for the
/// last record until then. A usage error where there is none.
TuneRecord record_named(TuneHistory& history, const std::string& word);
inline constexpr const char* record_words =
    "id, last, yesterday, last-week, or a date: the last record until then (last)";

/// The record of one run. Does nothing where no record is asked for.
class RunRecord {
public:
    /// To be made before the run moves anything: reads the instrument as it is.
    RunRecord(Session& session, const KeepOptions& options, const char* kind);
    /// Reads the instrument again, lets the command fill in what it found, and keeps the record. Returns its id for the
    /// result, null where there is none. What fails becomes the session's fault, so that the result is not lost.
    Json keep(const std::function<void(TuneRecord&)>& fill = {});
    /// The record, where one is asked for.
    TuneRecord& record() { return *record_; }

private:
    Session& session_;
    std::optional<TuneRecord> record_;
};

/// A control chart as a picture shows it: three sigma to either side, marked where a rule of `korvane trend` alarms.
TrendChart trend_chart(const ControlChart& chart);

}  // namespace korvane::program
