#include "globals/tune_logs.h"

namespace korvane {

namespace {

constexpr const char* setpoint_log_name = "SetpointLog.txt";

constexpr std::int32_t logbook_trace_level = 4;

const auto log_failure = swallowed_after(NamedLine{"error"});

}  // namespace

void TuneLogs::open(LogFile& log, const std::string& name, const LocalTime& now) const {
    log.open(name, text_of("===TUNE ", general_date_text(now), "==="));
}

bool TuneLogs::read_log_setpoint_traffic() {
    if (!log_setpoint_traffic_) log_setpoint_traffic_ = preferences_.GetTunePreference("LogSetpointTraffic") == "Yes";
    return *log_setpoint_traffic_;
}

void TuneLogs::write_tune_line(const std::string& message) {
    const auto body = [&] {
        if (!tune_log_.is_open()) {
            const LocalTime now = platform_.clock->now();
            open(tune_log_, dated_log_name("TuneLog", now), now);
        }
        tune_log_.write_line(message);
    };
    routine(trace_, {"WriteLineToTuneLogFile"}, log_failure, body);
}

void TuneLogs::write_error_line(const std::string& message) {
    const auto body = [&] {
        LogFile log(platform_);
        const LocalTime now = platform_.clock->now();
        open(log, dated_log_name("TuneErrorLog", now), now);
        log.write_line(message);
    };
    routine(trace_, {"WriteLineToTuneErrorLogFile"}, log_failure, body);
}

void TuneLogs::write_setpoint_line(const std::string& message) {
    const auto body = [&] {
        if (!read_log_setpoint_traffic()) return;
        const LocalTime now = platform_.clock->now();
        if (!setpoint_log_.is_open()) open(setpoint_log_, setpoint_log_name, now);
        setpoint_log_.write_line(text_of(date_yymmdd(now), " ", instrument_->time_stamp(), "==> ", message));
    };
    routine(trace_, {"WriteLineToSetpointLogFile"}, log_failure, body);
}

void TuneLogs::release_tune_log() {
    routine(trace_, {"ReleaseTuneLogFile"}, no_line, [&] { tune_log_.close(); });
}

void TuneLogs::report_to_logbook(const std::string& message, bool with_message_box, bool with_trace) {
    routine(trace_, {"ReportStatusToLogbook", logbook_trace_level}, no_line, [&](TraceObj& record) {
        if (with_trace) record.TR_PRINT(message);
        const auto entry = platform_.instrument->create_logbook_entry();
        if (!entry) raise_runtime_fault(error_number::object_not_set, "logbook entry");
        entry->write(contract::logbook.kind, message, contract::logbook.code, 0, 0, "");
        if (with_message_box) platform_.message_box->show(message, instrument_->title() + " Setpoint Editor - Tune");
    });
}

}  // namespace korvane
