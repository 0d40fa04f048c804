// The history of the tunes: its records listed, shown, compared, handed on.
#include <algorithm>
#include <cmath>

#include "commands.h"
#include "korvane/system.h"
#include "run.h"

namespace korvane::program {

namespace {

/// Null for an empty text.
Json known(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

ExitCode list_history(Session& session, const std::int64_t& most) {
    Table table({"id|id", "<time|time", "<kind|kind", "|note", "|instrument", "|serial", "|source", "|polarity",
                 "|verdict", "<source", "<polarity", "<verdict", "<note"});
    for (const TuneRecord& record : open_history(session, false).list(static_cast<std::size_t>(most)))
        table.add(record.id, record.time, record.kind, record.note, record.instrument, record.serial, record.source,
                  record.polarity, record.verdict, known(record.source), known(record.polarity), known(record.verdict),
                  known(record.note));
    return session.show(Json{{"records", table.json()}}, table);
}

Table calibrant_table(const TuneRecord& record) {
    Table table({"expected m/z||.4f", "error ppm||.2f", "standard error ppm||.2f", "height||.0f", "resolution||.0f",
                 "<verdict"});
    for (const auto& [measured, verdict, trace] : record.calibrants)
        if (measured.found())
            table.add(measured.mass, measured.error_ppm(), measured.standard_error_ppm(), measured.ns.pkHeight,
                      measured.amu.pkResolution, verdict.text);
        else
            table.add(measured.mass, nullptr, nullptr, nullptr, nullptr, verdict.text);
    return table;
}

ExitCode show_history(Session& session, const std::string& name) {
    TuneHistory history = open_history(session, false);
    const TuneRecord record = record_named(history, name);
    const Table calibrants = calibrant_table(record);
    if (session.csv) return session.show({}, calibrants);
    Table head({"<", "<"});
    for (const auto& [title, value] : std::initializer_list<std::pair<const char*, std::string>>{
             {"record", std::to_string(record.id)},
             {"time", record.time},
             {"kind", record.kind},
             {"note", record.note},
             {"version", record.version},
             {"instrument", record.instrument + (record.seed ? fmt::format(", seed {}", *record.seed) : "")},
             {"source", record.source},
             {"polarity", record.polarity},
             {"verdict", record.verdict},
             {"log", record.log},
             {"recording", record.recording}})
        if (!value.empty()) head.add(title, value);
    for (const RecordedSetpoint& setpoint : record.setpoints)
        if (setpoint.before != setpoint.after)
            head.add(setpoint.name, fmt::format("{} -> {}", setpoint.before, setpoint.after));
    for (const RecordedSearch& search : record.searches) head.add("search of " + search.setpoint, search.end);
    return session.show(Json{{"record", Json::parse(tune_record_json(record))}},
                        head.text() + (record.calibrants.empty() ? "" : "\n" + calibrants.text()));
}

struct MarkOptions {
    std::string word, text;
};

ExitCode mark_history(Session& session, const MarkOptions& options) {
    TuneHistory history = open_history(session, true);
    TuneRecord mark = make_mark(session.platform(), history.last().value_or(TuneRecord()), options.word, options.text);
    mark.version = KORVANE_VERSION;
    mark.id = history.add(mark);
    return session.show(Json{{"id", mark.id}, {"time", mark.time}, {"note", mark.note}},
                        fmt::format("{} {} {}\n", mark.id, mark.time, mark.note));
}

struct RecordPair {
    std::string from, to = "last";
};

const RecordedCalibrant* calibrant_of(const TuneRecord& record, double mass) {
    for (const RecordedCalibrant& calibrant : record.calibrants)
        if (is_same_mass(calibrant.measured.mass, mass) && calibrant.measured.found()) return &calibrant;
    return nullptr;
}

/// What is compared of a calibrant; nulls where it was not found.
Json compared(const RecordedCalibrant* calibrant) {
    if (!calibrant) return {{"ppm", nullptr}, {"height", nullptr}, {"resolution", nullptr}, {"verdict", nullptr}};
    const auto& [measured, verdict, trace] = *calibrant;
    return {{"ppm", measured.error_ppm()},
            {"height", measured.ns.pkHeight},
            {"resolution", measured.amu.pkResolution},
            {"verdict", verdict.text}};
}

Table moved_setpoints(const TuneRecord& from, const TuneRecord& to) {
    Table table({"<setpoint|name", "then|then", "now|now", "difference"});
    for (const auto& [name, before, now] : to.setpoints) {
        const auto found = std::ranges::find(from.setpoints, name, &RecordedSetpoint::name);
        const double then = found == from.setpoints.end() ? std::nan("") : found->after;
        if (then != now) table.add(name, then, now, now - then);
    }
    return table;
}

Table compared_peaks(const TuneRecord& from, const TuneRecord& to) {
    Table table({"expected m/z|mass|.4f", "|then", "|now", "error ppm then||.2f", "now||.2f", "height then||.0f",
                 "now||.0f", "change %||+.0f", "resolution then||.0f", "now||.0f", "<verdict then", "<now"});
    for (const auto& [measured, verdict, trace] : to.calibrants) {
        const RecordedCalibrant* const before = calibrant_of(from, measured.mass);
        const Json then = compared(before), now = compared(calibrant_of(to, measured.mass));
        std::optional<double> change;
        if (before && measured.found()) change = 100 * (measured.ns.pkHeight / before->measured.ns.pkHeight - 1);
        table.add(measured.mass, then, now, then["ppm"], now["ppm"], then["height"], now["height"], change,
                  then["resolution"], now["resolution"], before ? Json(name_of(before->verdict.state)) : Json(),
                  name_of(verdict.state));
    }
    return table;
}

ExitCode compare_records(Session& session, const RecordPair& options) {
    TuneHistory history = open_history(session, false);
    const TuneRecord from = record_named(history, options.from), to = record_named(history, options.to);
    const Table moved = moved_setpoints(from, to), peaks = compared_peaks(from, to);
    if (!session.json)
        session.talk(fmt::format("then: record {}, {}; now: record {}, {}", from.id, from.time, to.id, to.time));
    const std::string head = moved.size() == 0 ? "all setpoints are the same\n" : moved.text();
    return session.show(
        Json{{"then", from.id}, {"now", to.id}, {"setpoints", moved.json()}, {"calibrants", peaks.json()}},
        session.csv ? peaks.csv() : head + "\n" + peaks.text());
}

struct ExportFiles {
    std::optional<std::string> csv, json, mzqc, prometheus;
};

std::string csv_of(const std::vector<TuneRecord>& records) {
    Table table(
        {"record", "time", "source", "polarity", "m/z", "error ppm", "height", "resolution", "misfit", "verdict"});
    for (const TuneRecord& record : records)
        for (const auto& [peak, verdict, trace] : record.calibrants) {
            const auto cell = [&](double value) { return peak.found() ? Json(value) : Json(); };
            table.add(record.id, record.time, record.source, record.polarity, peak.mass, cell(peak.error_ppm()),
                      cell(peak.ns.pkHeight), cell(peak.amu.pkResolution), part_of(peak.quality, &PeakQuality::misfit),
                      name_of(verdict.state));
        }
    return table.csv();
}

std::string json_of(const std::vector<TuneRecord>& records) {
    std::string text;
    for (const TuneRecord& record : records) text += (text.empty() ? "[\n" : ",\n") + tune_record_json(record);
    return (text.empty() ? "[" : text) + "\n]\n";
}

ExitCode export_history(Session& session, const ExportFiles& files) {
    TuneHistory history = open_history(session, false);
    std::vector<TuneRecord> records;
    for (const TuneRecord& head : history.list(std::numeric_limits<std::int32_t>::max()))
        records.push_back(history.load(head.id));
    const TuneRecord last = record_named(history, "last");
    if (files.csv) save_text(session, *files.csv, csv_of(records));
    if (files.json) save_text(session, *files.json, json_of(records));
    if (files.mzqc) save_text(session, *files.mzqc, mzqc_document(records, utc_text(session.platform().clock->now())));
    if (files.prometheus) save_text(session, *files.prometheus, prometheus_text(last));
    return session.show(Json{{"records", records.size()}}, fmt::format("{} records\n", records.size()));
}

}  // namespace

void declare_history(CLI::App& group, Session& session) {
    const auto [list, most] = add_command(group, session, "list", "print the youngest records",
                                          "korvane history list -n 10", list_history, Prints::table);
    most = 30;
    add_count(list, "-n", most, "so many at most (30)", 1, 1'000'000);

    const auto [show, record] = add_command(group, session, "show", "print one record: what changed, the calibrants",
                                            "korvane history show last", show_history, Prints::table);
    record = "last";
    show.add_option("RECORD", record, record_words);

    const auto [mark, marking] =
        add_command(group, session, "mark", "note what was done to the instrument; maintenance begins charts anew",
                    "korvane history mark maintenance \"new capillary\"", mark_history);
    mark.add_option("WORD", marking.word, "maintenance, or a word of your own")->required();
    mark.add_option("TEXT", marking.text, "what was done");

    const auto [diff, pair] = add_command(group, session, "diff", "print what differs between two records",
                                          "korvane history diff last-week", compare_records, Prints::table);
    diff.add_option("THEN", pair.from, record_words)->required();
    diff.add_option("NOW", pair.to, "the later record (last)");

    CLI::App& handing = *group.add_subcommand("export", "write the history for other programs")->group("Commands");
    const auto files = std::make_shared<ExportFiles>();
    runs(handing, session, [files](Session& running) { return export_history(running, *files); });
    handing.footer("Example:\n  korvane history export --mzqc tunes.mzqc\n");
    CLI::Option_group& choice = *handing.add_option_group("Files");
    for (const auto& [name, target, help] :
         {std::tuple{"--csv", &files->csv, "calibrants of all records, a line each"},
          {"--json", &files->json, "all records, whole"},
          {"--mzqc", &files->mzqc, "all records as mzQC 1.0"},
          {"--prometheus", &files->prometheus, "the last record, for the text-file collector of a node exporter"}})
        add_name(choice, name, *target, help, "FILE");
    choice.require_option(1, 4);
}

}  // namespace korvane::program
