// The history of the tunes: list, show, mark.
#include "commands.h"
#include "run_record.h"
#include "text_table.h"

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
    TextTable table({"expected m/z", "error ppm", "+-", "height", "resolution", "<verdict"});
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

}  // namespace

void declare_history(CLI::App& group, Session& session) {
    const auto [list, listing] =
        add_command(group, session, "list", "print the youngest records", "korvane history list -n 10", list_history);
    add_csv(list, session);
    add_count(list, "-n", listing.most, "so many at most (30)", 1, 1'000'000);

    const auto [show, showing] = add_command(group, session, "show", "print one record: what changed, the calibrants",
                                             "korvane history show last", show_history);
    add_csv(show, session);
    show.add_option("RECORD", showing.name, record_words);

    const auto [mark, marking] =
        add_command(group, session, "mark", "note what was done to the instrument; maintenance begins charts anew",
                    "korvane history mark maintenance \"new capillary\"", mark_history);
    mark.add_option("WORD", marking.word, "maintenance, or a word of your own")->required();
    mark.add_option("TEXT", marking.text, "what was done");
    declare_history_files(group, session);
}

}  // namespace korvane::program
