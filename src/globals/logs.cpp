// The tune log, the tune error log, the setpoint log and the system logbook.
#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

constexpr const char* setpoint_log_name = "SetpointLog.txt";
constexpr std::int32_t logbook_trace_level = 4;

const auto log_failure = swallowed_after(NamedLine{"error"});

void open_tune_log(LogFile& log, const std::string& name, const LocalTime& now) {
    log.open(name, text_of("===TUNE ", general_date_text(now), "==="));
}

void open_dated_log(LogFile& log, std::string_view stem, const TuneGlobalsState& state) {
    const LocalTime now = state.platform.clock->now();
    open_tune_log(log, dated_log_name(stem, now), now);
}

}  // namespace

bool TuneGlobalsState::logs_setpoint_traffic() {
    if (!log_setpoint_traffic) log_setpoint_traffic = preferences.GetTunePreference("LogSetpointTraffic") == "Yes";
    return *log_setpoint_traffic;
}

void TuneGlobals::WriteLineToTuneLogFile(const std::string& strMessage) {
    routine(impl_->trace, {"WriteLineToTuneLogFile"}, log_failure, [&] {
        if (!impl_->tune_log.is_open()) open_dated_log(impl_->tune_log, "TuneLog", *impl_);
        impl_->tune_log.write_line(strMessage);
    });
}

void TuneGlobals::WriteLineToTuneErrorLogFile(const std::string& strMessage) {
    routine(impl_->trace, {"WriteLineToTuneErrorLogFile"}, log_failure, [&] {
        LogFile log(impl_->platform);
        open_dated_log(log, "TuneErrorLog", *impl_);
        log.write_line(strMessage);
    });
}

void TuneGlobals::WriteLineToSetpointLogFile(const std::string& strMessage) {
    routine(impl_->trace, {"WriteLineToSetpointLogFile"}, log_failure, [&] {
        if (!impl_->logs_setpoint_traffic()) return;
        const LocalTime now = impl_->platform.clock->now();
        if (!impl_->setpoint_log.is_open()) open_tune_log(impl_->setpoint_log, setpoint_log_name, now);
        impl_->setpoint_log.write_line(
            text_of(date_yymmdd(now), " ", one_line(impl_->instrument->time_stamp()), "==> ", strMessage));
    });
}

void TuneGlobals::ReleaseTuneLogFile() {
    routine(impl_->trace, {"ReleaseTuneLogFile"}, [&] { impl_->tune_log.close(); });
}

void TuneGlobals::ReportStatusToLogbook(const std::string& sMessage, bool bDoMessageBox, bool bDoTraceOutput) {
    routine(impl_->trace, {"ReportStatusToLogbook", logbook_trace_level}, no_line, [&](TraceObj& record) {
        if (bDoTraceOutput) record.TR_PRINT(sMessage);
        const auto entry = impl_->platform.instrument->create_logbook_entry();
        entry->write(contract::logbook.kind, sMessage, contract::logbook.code, 0, 0, "");
        if (bDoMessageBox)
            impl_->platform.message_box->show(sMessage, impl_->instrument->title() + " Setpoint Editor - Tune");
    });
}

std::string TuneGlobals::tune_log_path() const {
    return impl_->tune_log.path();
}

}  // namespace korvane
