#include "run.h"

#include <fmt/chrono.h>

#include <chrono>

#include "commands.h"
#include "korvane/calibrants.h"
#include "korvane/system.h"

namespace korvane {

void to_json(nlohmann::ordered_json& json, const PeakInfo& record) {
    for (std::size_t i = 0; i < peak_info_names.size(); ++i)
        json[peak_info_names[i]] = record.value(static_cast<std::int32_t>(i));
}

void to_json(nlohmann::ordered_json& json, const PeakQuality& quality) {
    json = {{"clipped", quality.clipped},
            {"overlapped", quality.overlapped},
            {"few_ions", quality.few_ions},
            {"misfit", quality.misfit}};
}

void to_json(nlohmann::ordered_json& json, const CalibrationCoefficients& coefficients) {
    for (const auto& [name, member] : calibration_coefficients) json[name] = coefficients.*member;
}

void to_json(nlohmann::ordered_json& json, const CalibrantVerdict& verdict) {
    std::optional<double> value, limit;
    if (verdict.limit > 0) value = verdict.value, limit = verdict.limit;
    json = {{"state", name_of(verdict.state)}, {"value", value}, {"limit", limit}, {"text", verdict.text}};
}

}  // namespace korvane

namespace korvane::program {

namespace {

/// "2026-11-22T08:51:49Z" so many days earlier: "2026-11-15".
std::string days_before(const std::string& time, int days) {
    using namespace std::chrono;
    return fmt::format("{:%Y-%m-%d}", sys_seconds(seconds(seconds_of(time))) - std::chrono::days(days));
}

}  // namespace

std::vector<double> chosen_masses(Session& session, const std::vector<double>& given) {
    if (!given.empty()) {
        for (const double mass : given) require_mass_in_range(session, mass);
        return given;
    }
    const auto masses = default_masses(session.instrument(), session.globals());
    return {masses.elements().begin(), masses.elements().end()};
}

void require_mass_in_range(Session& session, double mass) {
    if (!session.globals().IsThisMassInCurrentMassRange(mass))
        throw UsageError(fmt::format("m/z {} lies outside the mass range of the instrument, which ends at {}", mass,
                                     session.globals().GetMaxMassForCurrentMassRange()));
}

std::string written_log(const std::string& path) {
    return path.empty() ? "not written" : path;
}

ExitCode log_and_end(Session& session, const std::string& log, const std::string& faults) {
    if (!faults.empty()) return session.checked(faults);
    if (log.empty())
        session.fault = Error(error_number::file_or_element, "",
                              "the tune log is not written: Logfiles is missing or cannot be written");
    return session.fault ? exit_code_of(*session.fault) : ExitCode::done;
}

Json quality_text(const std::optional<PeakQuality>& quality) {
    if (!quality) return {};
    std::vector<std::string> words;
    if (quality->clipped) words.emplace_back("clipped");
    if (quality->overlapped) words.emplace_back("overlapped");
    if (quality->few_ions) words.emplace_back("few ions");
    if (quality->misfit > 1) words.push_back(fmt::format("misfit {:.2g}", quality->misfit));
    return words.empty() ? "ok" : fmt::format("{}", fmt::join(words, ", "));
}

TuneHistory open_history(Session& session, bool make) {
    const auto& chosen = session.options.history;
    const std::string name = chosen ? *chosen : utf8_of(path_of(session.base_folder()) / "TuneHistory.sqlite");
    const bool is_file = name.find("://") == std::string::npos;
    std::error_code ignored;
    if (!make && is_file && !std::filesystem::exists(path_of(name), ignored))
        throw Error(error_number::file_or_element, "",
                    name + ": there is no history yet (korvane measure --keep begins one)");
    return TuneHistory(name, make);
}

TuneRecord record_named(TuneHistory& history, const std::string& word) {
    if (const auto id = parse_integer(word)) return history.load(*id);
    const auto last = history.last();
    if (!last) throw Error(error_number::file_or_element, "", "the history has no record (korvane measure --keep)");
    if (word == "last") return history.load(last->id);
    std::string time = word;
    if (word == "yesterday") time = days_before(last->time, 1);
    if (word == "last-week") time = days_before(last->time, 7);
    if (time.size() < 4 || !parse_integer(time.substr(0, 4)))
        throw UsageError(word + " is no record: give an id, last, yesterday, last-week, or a date (2026-11-22)");
    if (const auto id = history.last_until(time, *last)) return history.load(*id);
    throw UsageError("there is no record of " + time + " or before");
}

RunRecord::RunRecord(Session& session, const KeepOptions& options, const char* kind) : session_(session) {
    if (!options.keep) return;
    record_ = begin_record(session.platform(), kind);
    record_->note = options.note;
    record_->version = KORVANE_VERSION;
    record_->instrument = session.instrument_name();
    if (record_->instrument == "simulated") record_->seed = session.options.seed;
    if (session.options.replay) record_->recording = *session.options.replay;
}

Json RunRecord::keep(const std::function<void(TuneRecord&)>& fill) {
    if (!record_) return {};
    try {
        end_record(*record_, session_.platform());
        if (fill) fill(*record_);
        record_->id = open_history(session_, true).add(*record_);
        session_.talk("record " + std::to_string(record_->id));
        return record_->id;
    } catch (const Error& error) {
        session_.fault = error.described("no record is kept: " + error.description());
        return {};
    }
}

}  // namespace korvane::program
