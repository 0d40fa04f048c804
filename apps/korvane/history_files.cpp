// Records beside one another, and for other programs.
#include <cmath>

#include "commands.h"
#include "korvane/system.h"
#include "run_record.h"
#include "text_files.h"
#include "text_table.h"

namespace korvane::program {

namespace {

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
    TextTable peaks({"expected m/z", "ppm then", "now", "height then", "now", "change", "resolution then", "now",
                     "<verdict then", "<now"});
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
             then && now ? fmt::format("{:+.0f} %", 100 * (height(now->measured) / height(then->measured) - 1)) : "-",
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
    TextTable table({"record", "time", "source", "polarity", "mz", "ppm", "height", "resolution", "misfit", "verdict"});
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

void declare_history_files(CLI::App& group, Session& session) {
    const auto [diff, pair] = add_command(group, session, "diff", "print what differs between two records",
                                          "korvane history diff last-week", compare_records);
    add_csv(diff, session);
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
