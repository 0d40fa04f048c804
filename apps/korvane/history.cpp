// The history of the tunes: its records listed, shown, compared, handed on.
#include <cmath>

#include "commands.h"
#include "korvane/system.h"
#include "run.h"

namespace korvane::program {

namespace {

std::string or_dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

struct ListOptions {
    std::int64_t most = 30;
};

ExitCode list_history(Session& session, const ListOptions& options) {
    Json rows = Json::array();
    TextTable table({"id", "<time", "<kind", "<source", "<polarity", "<verdict", "<note"});
    for (const TuneRecord& record : open_history(session, false).list(static_cast<std::size_t>(options.most))) {
        rows.push_back(Json{{"id", record.id},
                            {"time", record.time},
                            {"kind", record.kind},
                            {"note", record.note},
                            {"instrument", record.instrument},
                            {"serial", record.serial},
                            {"source", record.source},
                            {"polarity", record.polarity},
                            {"verdict", record.verdict}});
        table.add_row(record.id, record.time, record.kind, or_dash(record.source), or_dash(record.polarity),
                      or_dash(record.verdict), or_dash(record.note));
    }
    return session.show(Json{{"records", std::move(rows)}}, table);
}

struct NamedRecord {
    std::string name = "last";
};

TextTable calibrant_table(const TuneRecord& record) {
    TextTable table({"expected m/z", "error ppm", "standard error ppm", "height", "resolution", "<verdict"});
    for (const auto& [measured, verdict, trace] : record.calibrants) {
        const std::string mass = fmt::format("{:.4f}", measured.mass);
        if (!measured.found()) {
            table.add({mass, "-", "-", "-", "-", verdict.text});
            continue;
        }
        const auto error = measured.standard_error_ppm();
        table.add({mass, fmt::format("{:.2f}", measured.error_ppm()), error ? fmt::format("{:.2f}", *error) : "-",
                   fmt::format("{:.0f}", measured.ns.pkHeight), fmt::format("{:.0f}", measured.amu.pkResolution),
                   verdict.text});
    }
    return table;
}

ExitCode show_history(Session& session, const NamedRecord& options) {
    TuneHistory history = open_history(session, false);
    const TuneRecord record = record_named(history, options.name);
    const TextTable calibrants = calibrant_table(record);
    if (session.csv) return session.show({}, calibrants);
    TextTable head({"<", "<"});
    for (const auto& [name, value] : std::initializer_list<std::pair<const char*, std::string>>{
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
        if (!value.empty()) head.add({name, value});
    for (const RecordedSetpoint& setpoint : record.setpoints)
        if (setpoint.before != setpoint.after)
            head.add({setpoint.name, fmt::format("{} -> {}", setpoint.before, setpoint.after)});
    for (const RecordedSearch& search : record.searches) head.add({"search of " + search.setpoint, search.end});
    const std::string text = head.text().substr(head.text().find('\n') + 1);
    return session.show(Json{{"record", Json::parse(tune_record_json(record))}},
                        text + (record.calibrants.empty() ? "" : "\n" + calibrants.text()));
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

double value_after(const TuneRecord& record, const std::string& setpoint) {
    for (const RecordedSetpoint& each : record.setpoints)
        if (each.name == setpoint) return each.after;
    return std::nan("");
}

ExitCode compare_records(Session& session, const RecordPair& options) {
    TuneHistory history = open_history(session, false);
    const TuneRecord from = record_named(history, options.from), to = record_named(history, options.to);
    const auto cell = [](const char* format, const RecordedCalibrant* calibrant, auto value) {
        return calibrant ? fmt::format(fmt::runtime(format), value(calibrant->measured)) : "-";
    };
    Json setpoints = Json::array(), calibrants = Json::array();
    TextTable moved({"<setpoint", "then", "now", "difference"});
    for (const RecordedSetpoint& setpoint : to.setpoints) {
        const double before = value_after(from, setpoint.name);
        if (before == setpoint.after) continue;
        setpoints.push_back(Json{{"name", setpoint.name}, {"then", before}, {"now", setpoint.after}});
        moved.add_row(setpoint.name, before, setpoint.after, setpoint.after - before);
    }
    TextTable peaks({"expected m/z", "error ppm then", "now", "height then", "now", "change %", "resolution then",
                     "now", "<verdict then", "<now"});
    for (const RecordedCalibrant& calibrant : to.calibrants) {
        const double mass = calibrant.measured.mass;
        const RecordedCalibrant *then = calibrant_of(from, mass), *now = calibrant_of(to, mass);
        const auto ppm = [](const MeasuredCalibrant& peak) { return peak.error_ppm(); };
        const auto height = [](const MeasuredCalibrant& peak) { return peak.ns.pkHeight; };
        const auto resolution = [](const MeasuredCalibrant& peak) { return peak.amu.pkResolution; };
        const auto number = [](const RecordedCalibrant* peak, auto value) {
            return peak ? Json(value(peak->measured)) : Json();
        };
        calibrants.push_back(Json{{"mass", mass}});
        for (const auto& [name, peak] : {std::pair{"then", then}, std::pair{"now", now}})
            calibrants.back()[name] = Json{{"ppm", number(peak, ppm)},
                                           {"height", number(peak, height)},
                                           {"resolution", number(peak, resolution)},
                                           {"verdict", peak ? Json(peak->verdict.text) : Json()}};
        peaks.add(
            {fmt::format("{:.4f}", mass), cell("{:.2f}", then, ppm), cell("{:.2f}", now, ppm),
             cell("{:.0f}", then, height), cell("{:.0f}", now, height),
             then && now ? fmt::format("{:+.0f}", 100 * (height(now->measured) / height(then->measured) - 1)) : "-",
             cell("{:.0f}", then, resolution), cell("{:.0f}", now, resolution),
             then ? name_of(then->verdict.state) : "-", name_of(calibrant.verdict.state)});
    }
    if (!session.json)
        session.talk(fmt::format("then: record {}, {}; now: record {}, {}", from.id, from.time, to.id, to.time));
    const std::string head = setpoints.empty() ? "all setpoints are the same\n" : moved.text();
    return session.show(Json{{"then", from.id},
                             {"now", to.id},
                             {"setpoints", std::move(setpoints)},
                             {"calibrants", std::move(calibrants)}},
                        session.csv ? peaks.csv() : head + "\n" + peaks.text());
}

struct ExportFiles {
    std::optional<std::string> csv, json, mzqc, prometheus;
};

std::string csv_of(const std::vector<TuneRecord>& records) {
    TextTable table(
        {"record", "time", "source", "polarity", "m/z", "error ppm", "height", "resolution", "misfit", "verdict"});
    for (const TuneRecord& record : records)
        for (const RecordedCalibrant& calibrant : record.calibrants) {
            const MeasuredCalibrant& peak = calibrant.measured;
            const auto cell = [&](double value) { return peak.found() ? fmt::format("{}", value) : "-"; };
            table.add_row(record.id, record.time, record.source, record.polarity, peak.mass, cell(peak.error_ppm()),
                          cell(peak.ns.pkHeight), cell(peak.amu.pkResolution),
                          peak.quality ? cell(peak.quality->misfit) : "-", name_of(calibrant.verdict.state));
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
    for (const TuneRecord& head : history.list(all_records)) records.push_back(history.load(head.id));
    const TuneRecord last = record_named(history, "last");
    if (files.csv) save_text(session, *files.csv, csv_of(records));
    if (files.json) save_text(session, *files.json, json_of(records));
    if (files.mzqc) save_text(session, *files.mzqc, mzqc_document(records, utc_text(session.platform().clock->now())));
    if (files.prometheus) save_text(session, *files.prometheus, prometheus_text(last));
    return session.show(Json{{"records", records.size()}}, fmt::format("{} records\n", records.size()));
}

}  // namespace

void declare_history(CLI::App& group, Session& session) {
    const auto [list, listing] = add_command(group, session, "list", "print the youngest records",
                                             "korvane history list -n 10", list_history, Prints::table);
    add_count(list, "-n", listing.most, "so many at most (30)", 1, 1'000'000);

    const auto [show, showing] = add_command(group, session, "show", "print one record: what changed, the calibrants",
                                             "korvane history show last", show_history, Prints::table);
    show.add_option("RECORD", showing.name, record_words);

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
