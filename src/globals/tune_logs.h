// The tune log, the tune error log, the setpoint log and the system logbook.
#pragma once

#include <string>

#include "frame/routine.h"
#include "globals/log_file.h"
#include "korvane/system.h"

namespace korvane {

/// The three log writers leave their failure in the trace's error line and never raise.
class TuneLogs {
public:
    TuneLogs(const Trace& trace, InstrumentGlobals& instrument, const Platform& platform)
        : trace_(trace), instrument_(instrument), platform_(platform), tune_log_(platform), setpoint_log_(platform) {}

    void set_log_setpoint_traffic(bool on) { log_setpoint_traffic_ = on; }

    void write_tune_line(const std::string& message);
    void write_error_line(const std::string& message);
    void write_setpoint_line(const std::string& message);
    void release_tune_log();
    void report_to_logbook(const std::string& message, bool with_message_box, bool with_trace);
    const std::string& tune_log_path() const { return tune_log_.path(); }

private:
    void open(LogFile& log, const std::string& name, const LocalTime& now) const;

    const Trace& trace_;
    InstrumentGlobals& instrument_;
    const Platform& platform_;
    LogFile tune_log_;
    LogFile setpoint_log_;
    bool log_setpoint_traffic_ = false;
};

}  // namespace korvane
