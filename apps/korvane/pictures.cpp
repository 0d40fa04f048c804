// Pictures of the calibrants, and pages of records, as files.
#include "pictures.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "calibrants.h"
#include "commands.h"
#include "korvane/peak_traces.h"
#include "run_record.h"
#include "text_files.h"

namespace korvane::program {

namespace {

struct PlotOptions {
    std::vector<double> masses;
    std::optional<std::string> file, record;
    bool mass_errors = false, searches = false;
};

/// What a record has of the masses, all of them where none is given.
TuneRecord recorded(Session& session, const PlotOptions& options) {
    TuneHistory history = open_history(session, false);
    TuneRecord record = record_named(history, *options.record);
    std::vector<RecordedCalibrant> chosen;
    for (const double mass : options.masses) {
        const auto found = std::ranges::find_if(record.calibrants, [&](const RecordedCalibrant& calibrant) {
            return is_same_mass(calibrant.measured.mass, mass);
        });
        if (found == record.calibrants.end()) throw UsageError(fmt::format("record {} has no m/z {}", record.id, mass));
        chosen.push_back(*found);
    }
    if (!chosen.empty()) record.calibrants = std::move(chosen);
    return record;
}

TuneRecord measured(Session& session, const PlotOptions& options) {
    session.begin_run();
    PeakTraces traces(session.platform());
    TuneGlobals globals(traces.platform());
    SpectrumParser parser(traces.platform());
    TuneRecord record;
    const VariantArray<double> masses(chosen_masses(session, globals, options.masses));
    judge(record, measure_calibrants(parser, globals, masses), read_tune_limits(session.platform()));
    traces.give_to(record.calibrants);
    return record;
}

ExitCode plot(Session& session, const PlotOptions& options) {
    const TuneRecord record = options.record ? recorded(session, options) : measured(session, options);
    std::vector<Figure> figures;
    if (options.mass_errors) figures.push_back(mass_error_figure(record));
    if (options.searches)
        for (const RecordedSearch& search : record.searches) figures.push_back(search_figure(search));
    if (!options.mass_errors && !options.searches)
        for (const RecordedCalibrant& calibrant : record.calibrants) figures.push_back(peak_figure(calibrant));
    save_text(session, *options.file, svg_file(figures));
    return session.show(Json{{"file", *options.file}, {"pictures", figures.size()}}, *options.file + "\n");
}

struct ReportOptions {
    std::string record = "last";
    std::optional<std::string> file;
    bool last = false;
};

ExitCode report(Session& session, const ReportOptions& options) {
    if (options.last && options.record != "last") throw UsageError("give either a record or --last");
    TuneHistory history = open_history(session, false);
    const TuneRecord record = record_named(history, options.record);
    const std::string file = options.file.value_or(report_name(session, record));
    save_text(session, file, report_page(history, record));
    return session.show(Json{{"record", record.id}, {"file", file}}, file + "\n");
}

}  // namespace

std::string report_page(TuneHistory& history, const TuneRecord& record) {
    const std::vector<ControlChart> charts = charts_of(history, record);
    const std::vector<bool> alarms = judged(charts, record.id);
    std::vector<TrendChart> trends;
    for (std::size_t i = 0; i < charts.size(); ++i)
        if (charts[i].values.size() > 1 && (!charts[i].mz || alarms[i])) trends.push_back(trend_chart(charts[i]));
    return report_html(record, trends);
}

std::string report_name(Session& session, const TuneRecord& record) {
    std::string stamp;
    for (const char character : record.time.substr(0, 19))
        stamp += character == 'T' ? "_" : std::isdigit(character) ? std::string(1, character) : "";
    return utf8_of(path_of(session.base_folder()) / "Logfiles" / ("TuneReport_" + stamp + ".html"));
}

void declare_plot(CLI::App& command, Session& session) {
    PlotOptions& options = runs(command, session, "korvane plot 566.8885 1926.6365 -o peaks.svg", plot);
    add_numbers(command, "MASS", options.masses, "m/z to show (the mass list of the base folder)", positive);
    add_name(command, "-o,--output", options.file, "the file to write, scalable vector graphics", "FILE")->required();
    command.add_flag("--mass-errors", options.mass_errors, "one picture of the mass errors, not one a peak");
    CLI::Option* record =
        add_name(command, "--record", options.record, "draw a record of the history, measure nothing", "RECORD");
    command.add_flag("--searches", options.searches, "the searches of the record")->needs(record);
}

void declare_report(CLI::App& command, Session& session) {
    ReportOptions& options = runs(command, session, "korvane report last -o report.html", report);
    command.add_option("RECORD", options.record, record_words);
    command.add_flag("--last", options.last, "the last record");
    add_name(command, "-o,--output", options.file, "the file to write (beside the tune logs)", "FILE");
}

}  // namespace korvane::program
