#include "abundance/binary_search_log.h"

#include "platform/automation_arithmetic.h"

namespace korvane {

void BinarySearchLog::switch_by_preference() {
    on_ = session_.prefs.GetTunePreference("BinarySearchLoggingEnabled") == "3000";
}

void BinarySearchLog::write(const std::string& line) {
    const auto keep = [&](TraceObj& record, RoutineName name, const Error& error) {
        const std::string text = text_of("error[", error.number(), "] in ", name.name, "(): ", error.description());
        record.TR_PRINT(text);
        session_.tune.set_ErrorMsgString(text);
        return true;
    };
    routine(session_.trace, {"WriteLineToBinarySearchLogFile"}, keep, [&] {
        if (!file_.is_open()) open();
        file_.write_line(line);
    });
}

void BinarySearchLog::open() {
    const LocalTime now = session_.platform.clock->now();
    const Segments segments = session_.current_segments();
    const InstrumentValue gain_channel =
        session_.instrument->setpoints().value(contract::setpoint.preamp_gain_mode, segments.time, segments.scan);
    file_.open(dated_log_name("BinarySearch", now),
               text_of("===Binary Search ", general_date_text(now), "GainChannel = ", gain_channel));
}

}  // namespace korvane
