// What runs share: the masses they look for, what they print of peaks, and the record that they leave in the history.
#pragma once

#include "korvane/control_chart.h"
#include "korvane/report.h"
#include "korvane/spectrum_parser.h"
#include "session.h"

namespace korvane {

// What JSON shows of peaks and calibrations, by name.
void to_json(nlohmann::ordered_json& json, const PeakInfo& record);
void to_json(nlohmann::ordered_json& json, const PeakQuality& quality);
void to_json(nlohmann::ordered_json& json, const CalibrationCoefficients& coefficients);
/// Value and limit are null where no number decided.
void to_json(nlohmann::ordered_json& json, const CalibrantVerdict& verdict);

}  // namespace korvane

namespace korvane::program {

/// The given masses, or the default list for the instrument's source and polarity. A given mass outside the
/// instrument's mass range is a usage error.
std::vector<double> chosen_masses(Session& session, const std::vector<double>& given);
void require_mass_in_range(Session& session, double mass);

/// Path of the tune log that the measurement wrote, or that there is none.
std::string written_log(const std::string& path);
/// What a command that writes a tune log ends with: the faults that a check found, or all done, or the code of the
/// session's fault, which may be that the log was not written.
ExitCode log_and_end(Session& session, const std::string& log, const std::string& faults);

/// "clipped", "overlapped", "few ions", "misfit 1.8", with commas between; "ok" where none holds, null where the peak
/// finder does not tell.
Json quality_text(const std::optional<PeakQuality>& quality);

struct KeepOptions {
    bool keep = false;
    std::string note;
};

/// The history that the command line or KORVANE_HISTORY names, else that of the base folder. Errors as `TuneHistory`;
/// where `make` is false there must be one.
TuneHistory open_history(Session& session, bool make);

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
