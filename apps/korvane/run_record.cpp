#include "run_record.h"

#include <chrono>
#include <cstdio>

#include "commands.h"
#include "korvane/spectrum_parser.h"

namespace korvane::program {

namespace {

std::string history_name(Session& session) {
    if (session.options.history) return *session.options.history;
    return utf8_of(path_of(session.base_folder()) / "TuneHistory.sqlite");
}

/// "2026-11-22T08:51:49Z" so many days earlier: "2026-11-15".
std::string days_before(const std::string& time, int days) {
    using namespace std::chrono;
    int year_number = 0;
    unsigned month_number = 0, day_number = 0;
    std::sscanf(time.c_str(), "%d-%u-%u", &year_number, &month_number, &day_number);
    const year_month_day day =
        sys_days(year(year_number) / month(month_number) / std::chrono::day(day_number)) - std::chrono::days(days);
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                       static_cast<unsigned>(day.day()));
}

}  // namespace

void add_keep(CLI::App& command, KeepOptions& options) {
    CLI::Option* keep = command.add_flag("--keep", options.keep, "keep a record in the history (korvane history)");
    command.add_option("--note", options.note, "what to remember beside the record")->type_name("TEXT")->needs(keep);
}

TuneHistory open_history(Session& session, bool make) {
    const std::string name = history_name(session);
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

Json RunRecord::keep(const SpectrumParser& parser, const std::function<void(TuneRecord&)>& fill) {
    return keep([&](TuneRecord& record) {
        record.log = parser.tune_log_path();
        fill(record);
    });
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
