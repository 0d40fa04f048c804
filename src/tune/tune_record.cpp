// Records: of a run, the instrument before and after and how its calibrants were judged; as JSON, with recipes and
// limits.
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstdio>

#include "korvane/error.h"
#include "korvane/system.h"
#include "korvane/tune_history.h"
#include "tune/base_file.h"

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

using json::Json;
using json::JsonItem;

namespace {

constexpr int record_schema = 1;

struct HeightsByMass {
    std::map<double, double>& of;
};

void read(const JsonItem& item, HeightsByMass heights, const json::Bounds& bounds) {
    heights.of.clear();
    for (const auto& [key, height] : item.members()) {
        double mz = 0;
        const auto end = std::from_chars(key.data(), key.data() + key.size(), mz);
        if (end.ec != std::errc() || end.ptr != key.data() + key.size() || !(mz > 0)) height.refuse("is no m/z");
        heights.of[mz] = height.number(bounds);
    }
}

Json written(HeightsByMass& heights) {
    Json by_mass = Json::object();
    for (const auto& [mz, height] : heights.of) by_mass[fmt::format("{}", mz)] = height;
    return by_mass;
}

}  // namespace

static auto choices(CalibrantState) {
    using enum CalibrantState;
    std::vector<json::Choice<CalibrantState>> all;
    for (const CalibrantState state : {missing, off_mass, clipped, low, broad, misshapen, ok})
        all.emplace_back(name_of(state), state);
    return all;
}

template <class Io>
void fields(Io& io, RecordedSetpoint& part) {
    io("name", part.name)("before", part.before)("after", part.after);
}

template <class Io>
void fields(Io& io, CalibrationCoefficients& part) {
    for (const auto& [name, term] : calibration_coefficients) io(name, part.*term);
}

template <class Io>
void fields(Io& io, TuneLimits& part) {
    io("mass_error_ppm", part.mass_error_ppm)("resolution", part.resolution)("height", part.height);
    io("part_of_reference", part.part_of_reference)("misfit", part.misfit)("reference_heights",
                                                                           HeightsByMass{part.reference_heights});
}

template <class Io>
void fields(Io& io, PeakInfo& part) {
    io("pkApexX", part.pkApexX)("pkStart", part.pkStart)("pkArea", part.pkArea)("pkCentroid", part.pkCentroid);
    io("pkWidth", part.pkWidth)("pkHeight", part.pkHeight)("pkResolution", part.pkResolution)("pkEnd", part.pkEnd);
}

template <class Io>
void fields(Io& io, PeakUncertainty& part) {
    io("centroid", part.centroid)("height", part.height)("width", part.width)("area", part.area)("ions", part.ions);
}

template <class Io>
void fields(Io& io, PeakQuality& part) {
    io("clipped", part.clipped)("overlapped", part.overlapped)("few_ions", part.few_ions)("misfit", part.misfit);
}

template <class Io>
void fields(Io& io, CalibrantVerdict& part) {
    io("state", part.state)("value", part.value)("limit", part.limit)("text", part.text);
}

template <class Io>
void fields(Io& io, PeakTrace& part) {
    io("start_ns", part.start_ns)("interval_ns", part.interval_ns)("counts", part.counts);
    io("window_start_ns", part.window_start_ns)("window_end_ns", part.window_end_ns)("baseline", part.baseline);
    io("fit_start_ns", part.fit_start_ns)("fit_interval_ns", part.fit_interval_ns)("fit", part.fit);
    io("fit_is_told", part.fit_is_told);
}

template <class Io>
void fields(Io& io, RecordedCalibrant& part) {
    MeasuredCalibrant& measured = part.measured;
    io("mass", measured.mass)("ns", measured.ns)("amu", measured.amu)("standard_errors", measured.standard_errors);
    io("ppm_per_ns", measured.ppm_per_ns)("quality", measured.quality)("verdict", part.verdict)("trace", part.trace);
}

template <class Io>
void fields(Io& io, CalibrantResidual& part) {
    io("mass", part.measured.mass)("time_ns", part.measured.time_ns)("error_ns", part.measured.error_ns);
    io("spectra", part.measured.spectra)("error_ppm", part.error_ppm)("before_ppm", part.before_ppm);
    io("after_ppm", part.after_ppm)("left_out_ppm", part.left_out_ppm)("law_error_ppm", part.law_error_ppm);
    io("not_used", part.not_used);
}

template <class Io>
void fields(Io& io, SecantProbe& part) {
    io("value", part.value)("transients", part.transients)("abundance", part.abundance);
    io("standard_error", part.standard_error);
}

template <class Io>
void fields(Io& io, RecordedSearch& part) {
    io("setpoint", part.setpoint)("mz", part.mz)("target", part.target)("before", part.before)("after", part.after);
    io("end", part.end)("probes", part.probes);
}

template <class Io>
void fields(Io& io, TuneRecord& part) {
    io("id", part.id)("time", part.time)("kind", part.kind)("note", part.note)("version", part.version);
    io("instrument", part.instrument)("serial", part.serial)("seed", part.seed)("source", part.source);
    io("polarity", part.polarity)("setpoints", part.setpoints)("calibration_before", part.calibration_before);
    io("calibration_after", part.calibration_after)("limits", part.limits)("calibrants", part.calibrants);
    io("residuals", part.residuals)("searches", part.searches)("verdict", part.verdict)("log", part.log);
    io("recording", part.recording);
}

template <class Io>
void fields(Io& io, RecipeSearch& part) {
    io("setpoint", part.setpoint)("mz", part.mz)("target", part.target)("min", part.min)("max", part.max);
    io("around_percent", part.around_percent)("resolution", part.resolution);
    io("tolerance_percent", part.tolerance_percent)("raise_to_reduce", part.raise_to_reduce);
}

template <class Io>
void fields(Io& io, TuneRecipe& part) {
    io("schema", part.schema)("adjust", part.searches)("fit_spectra", part.fit_spectra)("masses", part.masses);
}

template <class Object>
void read_fields(const BaseFile& file, const Json& object, Object& into) {
    const json::Source source{file.routine, file.path + ": "};
    read(JsonItem(object, "", source), into, {});
}
template void read_fields(const BaseFile&, const Json&, TuneRecipe&);
template void read_fields(const BaseFile&, const Json&, TuneLimits&);

std::string tune_record_json(const TuneRecord& record) {
    TuneRecord parts = record;
    Json object{{"schema", record_schema}};
    object.update(json::written(parts));
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

TuneRecord tune_record_from_json(std::string_view text) {
    const json::Source source{.routine = "tune_record_from_json", .before = "", .is_tolerant = true};
    const Json object = Json::parse(text, nullptr, false);
    const JsonItem item(object, "record", source);
    const auto schema = object.is_object() && object.contains("schema") ? item.required("schema").whole_number({}) : 0;
    if (schema < 1) throw Error(error_number::file_or_element, source.routine, "no record of a tune in JSON");
    if (schema > record_schema)
        throw Error(error_number::file_or_element, source.routine,
                    fmt::format("the record has schema {}, this program knows {} at most", schema, record_schema));
    TuneRecord record;
    read(item, record, {});
    return record;
}

}  // namespace korvane
