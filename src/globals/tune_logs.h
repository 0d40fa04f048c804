// The tune log, the tune error log, the setpoint log and the system logbook.
#pragma once

#include <optional>
#include <string>

#include "frame/lazy_instrument.h"
#include "frame/routine.h"
#include "globals/log_file.h"
#include "korvane/system.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

/// Where the base folder is not known at creation, whether setpoint lines are wanted is read at the first of them. The
/// three log writers leave their failure in the trace's error line and never raise.
class TuneLogs {
public:
    TuneLogs(const Trace& trace, const LazyInstrument& instrument, clsTunePrefsXML& preferences,
             const Platform& platform)
        : trace_(trace),
          instrument_(instrument),
          preferences_(preferences),
          platform_(platform),
          tune_log_(platform),
          setpoint_log_(platform) {}

    /// Whether the setpoint log is kept; the preference is read once.
    bool read_log_setpoint_traffic();

    void write_tune_line(const std::string& message);
    void write_error_line(const std::string& message);
    void write_setpoint_line(const std::string& message);
    void release_tune_log();
    void report_to_logbook(const std::string& message, bool with_message_box, bool with_trace);
    const std::string& tune_log_path() const { return tune_log_.path(); }

private:
    void open(LogFile& log, const std::string& name, const LocalTime& now) const;

    const Trace& trace_;
    const LazyInstrument& instrument_;
    clsTunePrefsXML& preferences_;
    const Platform& platform_;
    LogFile tune_log_;
    LogFile setpoint_log_;
    std::optional<bool> log_setpoint_traffic_;
};

}  // namespace korvane
