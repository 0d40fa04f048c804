// Creation, properties, and the logs: tune log, tune error log, setpoint log and system logbook.
#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

bool is_base_folder_known(InstrumentLayer& layer) {
    try {
        return !base_folder(layer).empty();
    } catch (...) {
        return false;  // A missing instrument is no reason to fail here.
    }
}

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

TuneGlobalsState::TuneGlobalsState(const Platform& given) : platform(checked(given)) {
    if (is_base_folder_known(*platform.instrument)) logs_setpoint_traffic();
}

TuneGlobals::TuneGlobals(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

std::int32_t TuneGlobals::CurrentTimeSegment() const {
    return impl_->segments.time;
}
void TuneGlobals::set_CurrentTimeSegment(std::int32_t value) {
    impl_->segments.time = value;
}
std::int32_t TuneGlobals::CurrentScanSegment() const {
    return impl_->segments.scan;
}
void TuneGlobals::set_CurrentScanSegment(std::int32_t value) {
    impl_->segments.scan = value;
}
std::string TuneGlobals::ErrorMsgString() const {
    return impl_->error_message;
}
void TuneGlobals::set_ErrorMsgString(const std::string& value) {
    impl_->error_message = value;
}
double TuneGlobals::m_AbundanceReductionTechnology_VCap() const {
    return impl_->abundance_reduction_vcap;
}
void TuneGlobals::set_m_AbundanceReductionTechnology_VCap(double value) {
    impl_->abundance_reduction_vcap = value;
}
double TuneGlobals::m_AbundanceReductionTechnology_Fragmentor() const {
    return impl_->abundance_reduction_fragmentor;
}
void TuneGlobals::set_m_AbundanceReductionTechnology_Fragmentor(double value) {
    impl_->abundance_reduction_fragmentor = value;
}

bool TuneGlobalsState::logs_setpoint_traffic() {
    if (!log_setpoint_traffic) log_setpoint_traffic = preferences.GetTunePreference("LogSetpointTraffic") == "Yes";
    return *log_setpoint_traffic;
}

void TuneGlobals::WriteLineToTuneLogFile(const std::string& strMessage) {
    routine(impl_->trace, log_failure, [&] {
        if (!impl_->tune_log.is_open()) open_dated_log(impl_->tune_log, "TuneLog", *impl_);
        impl_->tune_log.write_line(strMessage);
    });
}

void TuneGlobals::WriteLineToTuneErrorLogFile(const std::string& strMessage) {
    routine(impl_->trace, log_failure, [&] {
        LogFile log(impl_->platform);
        open_dated_log(log, "TuneErrorLog", *impl_);
        log.write_line(strMessage);
    });
}

void TuneGlobals::WriteLineToSetpointLogFile(const std::string& strMessage) {
    routine(impl_->trace, log_failure, [&] {
        if (!impl_->logs_setpoint_traffic()) return;
        const LocalTime now = impl_->platform.clock->now();
        if (!impl_->setpoint_log.is_open()) open_tune_log(impl_->setpoint_log, setpoint_log_name, now);
        impl_->setpoint_log.write_line(
            text_of(date_yymmdd(now), " ", one_line(impl_->instrument->time_stamp()), "==> ", strMessage));
    });
}

void TuneGlobals::ReleaseTuneLogFile() {
    routine(impl_->trace, [&] { impl_->tune_log.close(); });
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
