// The record of a run: the instrument before and after, and how its calibrants were judged.
#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "korvane/error.h"
#include "korvane/system.h"
#include "korvane/tune_history.h"

namespace korvane {

namespace {

double setpoint_value(SetpointTable& table, std::int32_t index) {
    return number_of(table.value(index, 0, 0), table.internal_name(index));
}

}  // namespace

std::int64_t seconds_of(const std::string& time) {
    int year = 1970, hour = 0, minute = 0, second = 0;
    unsigned month = 1, day = 1;
    std::sscanf(time.c_str(), "%d-%u-%uT%d:%d:%d", &year, &month, &day, &hour, &minute, &second);
    const std::chrono::sys_days date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    return date.time_since_epoch() / std::chrono::seconds(1) + hour * 3600 + minute * 60 + second;
}

TuneRecord begin_record(const Platform& platform, std::string kind) {
    TuneGlobals globals(platform);
    const auto view = open_globals(*platform.instrument);
    TuneRecord record;
    record.time = utc_text(platform.clock->now());
    record.kind = std::move(kind);
    record.serial = view->title();
    record.source = globals.GetSourceTypeStr();
    record.polarity = globals.GetPolarityStr();
    SetpointTable& table = view->setpoints();
    for (const std::int32_t index : table.indexes()) {
        const double value = setpoint_value(table, index);
        record.setpoints.push_back({table.internal_name(index), value, value});
    }
    record.calibration_before = globals.GetCurrentCalibrationObjFromDD()->coefficients();
    record.calibration_after = record.calibration_before;
    return record;
}

void end_record(TuneRecord& record, const Platform& platform) {
    const auto view = open_globals(*platform.instrument);
    for (RecordedSetpoint& setpoint : record.setpoints)
        setpoint.after = setpoint_value(view->setpoints(), view->setpoints().index_of(setpoint.name));
    record.calibration_after = TuneGlobals(platform).GetCurrentCalibrationObjFromDD()->coefficients();
}

TuneRecord make_mark(const Platform& platform, const TuneRecord& like, const std::string& word,
                     const std::string& text) {
    TuneRecord mark;
    mark.time = utc_text(platform.clock->now());
    mark.kind = "mark";
    mark.note = text.empty() ? word : word + ": " + text;
    mark.instrument = like.instrument;
    mark.serial = like.serial;
    mark.version = like.version;
    return mark;
}

void judge(TuneRecord& record, const std::vector<MeasuredCalibrant>& measured, const TuneLimits& limits) {
    record.limits = limits;
    record.calibrants.clear();
    std::string faults;
    for (const MeasuredCalibrant& calibrant : measured) {
        record.calibrants.push_back({calibrant, verdict_of(calibrant, limits), {}});
        const CalibrantVerdict& verdict = record.calibrants.back().verdict;
        if (verdict.state == CalibrantState::ok) continue;
        faults += fmt::format("{}{:.4f} {}", faults.empty() ? "" : ", ", calibrant.mass, name_of(verdict.state));
    }
    record.verdict = faults.empty() ? "ok" : faults;
}

}  // namespace korvane
