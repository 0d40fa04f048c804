// A whole tune by a recipe; pages of records, and pictures, as files.
#include <fmt/chrono.h>

#include <algorithm>

#include "korvane/tune_run.h"
#include "run.h"
#include "setpoints.h"

namespace korvane::program {

namespace {

/// Writes the page of a record of the history, with the charts that all calibrants share, and those out of control, to
/// the file, or beside the tune logs when nobody says where; returns the file's name.
std::string written_report(Session& session, TuneHistory& history, const TuneRecord& record,
                           const std::optional<std::string>& wanted) {
    const std::vector<ControlChart> charts = charts_of(history, record);
    const std::vector<bool> alarms = judged(charts, record.id);
    std::vector<TrendChart> trends;
    for (std::size_t i = 0; i < charts.size(); ++i)
        if (charts[i].values.size() > 1 && (!charts[i].mz || alarms[i])) trends.push_back(trend_chart(charts[i]));
    const auto seconds = static_cast<std::time_t>(seconds_of(record.time));
    const std::string file =
        wanted.value_or(utf8_of(path_of(session.base_folder()) / "Logfiles" /
                                fmt::format("TuneReport_{:%Y%m%d_%H%M%S}.html", fmt::gmtime(seconds))));
    save_text(session, file, report_html(record, trends));
    return file;
}

struct TuneOptions {
    std::optional<std::string> recipe, report;
    std::string only, from, note;
    bool dry_run = false;
};

/// Readiness is asked for in any case.
std::vector<TuneStep> chosen_steps(const TuneOptions& options) {
    std::vector<TuneStep> steps;
    bool is_reached = options.from.empty();
    for (std::size_t i = 0; i < std::size(tune_step_names); ++i) {
        const std::string name = tune_step_names[i];
        is_reached = is_reached || name == options.from;
        const bool is_chosen = options.only.empty() ? is_reached : name == options.only;
        if (is_chosen || i == 0) steps.push_back(static_cast<TuneStep>(i));
    }
    return steps;
}

const char* name_of(TuneStep step) {
    return tune_step_names[static_cast<std::size_t>(step)];
}

/// What a step would do.
std::string plan_of(TuneStep step, const TuneRecipe& recipe) {
    std::string searches;
    for (const RecipeSearch& search : recipe.searches)
        searches += fmt::format("{}{} for {:.0f} counts at m/z {:.4f}", searches.empty() ? "" : ", ", search.setpoint,
                                search.target, search.mz);
    const std::string plans[] = {
        "ask whether the instrument is ready", "look for enough calibrants",
        searches.empty() ? "nothing to adjust" : "search " + searches,
        fmt::format("fit the calibration to {} spectra, write it where it is better", recipe.fit_spectra),
        recipe.masses.empty() ? "measure and judge the calibrants"
                              : fmt::format("measure and judge {} masses", recipe.masses.size())};
    return plans[static_cast<std::size_t>(step)];
}

/// What the steps have come to; noted for the end after each, so that a failure shows what was done before it.
class StepTable {
public:
    explicit StepTable(Session& session) : session_(session) {}

    void add(const std::string& step, const std::string& result) {
        table_.add(step, result);
        object["steps"] = table_.json();
        session_.show(object, table_);
    }

    Json object;

private:
    Session& session_;
    Table table_{"<step|step", "<result|result"};
};

/// Not good: everything goes back before the record is ended, so that it tells how the instrument is.
void put_back(Session& session, StepTable& steps) {
    std::string moved;
    for (const PutBack& row : session.give_back())
        if (row.found != row.before || !row.failure.empty())
            moved += fmt::format("{}{} to {:g}{}", moved.empty() ? "" : ", ", row.name, row.before,
                                 row.failure.empty() ? "" : " failed: " + row.failure);
    steps.add("put back", moved.empty() ? "nothing was moved" : moved);
}

ExitCode tune(Session& session, const TuneOptions& options) {
    if (!options.only.empty() && !options.from.empty()) throw UsageError("give either --only or --from");
    const TuneRecipe recipe = read_tune_recipe(session.platform(), options.recipe.value_or(""));
    const std::vector<TuneStep> chosen = chosen_steps(options);
    StepTable steps(session);
    if (options.dry_run) {
        for (const TuneStep step : chosen) steps.add(name_of(step), plan_of(step, recipe));
        return ExitCode::done;
    }

    session.begin_run();
    std::vector<std::string> moved;
    for (const RecipeSearch& search : recipe.searches) moved.push_back(search.setpoint);
    session.held = std::make_shared<SearchMark>(session, moved);
    RunRecord run(session, {.keep = true, .note = options.note}, "tune");
    const auto tell = [&](const TuneProgress& progress) {
        const auto done = std::ranges::find(chosen, progress.step) - chosen.begin() + progress.is_done;
        const std::string line =
            fmt::format("[{}/{}] {}: {}", done, chosen.size(), name_of(progress.step), progress.text);
        if (progress.is_done) steps.add(name_of(progress.step), progress.text);
        session.tell_progress(line, static_cast<double>(done) / static_cast<double>(chosen.size()));
    };
    const std::string fault = run_tune(session.platform(), recipe, chosen, run.record(), tell);
    if (!fault.empty()) put_back(session, steps);
    // What no record tells of does not stay, either.
    const Json id = steps.object["record"] = run.keep();
    const bool is_kept = !id.is_null();
    if (is_kept && fault.empty()) session.keep_moves();
    const TuneRecord& record = run.record();
    steps.add("verdict", record.verdict.empty() ? "not judged" : record.verdict);
    if (!is_kept) return exit_code_of(*session.fault);
    TuneHistory history = open_history(session, false);
    const std::string file = written_report(session, history, record, options.report);
    steps.object["verdict"] = record.verdict;
    steps.object["report"] = file;
    steps.add("report", file);
    return session.checked(fault);
}

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
    TuneRecord record;
    measure_record(record, session.platform(), session.globals(), chosen_masses(session, options.masses));
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
    const std::string file = written_report(session, history, record, options.file);
    return session.show(Json{{"record", record.id}, {"file", file}}, file + "\n");
}

}  // namespace

void declare_tune(CLI::App& command, Session& session) {
    TuneOptions& options = runs(command, session, "korvane tune --from fit", tune);
    add_name(command, "RECIPE", options.recipe, "what to do (TuneRecipe.json of the base folder)", "FILE");
    add_choice(command, "--only", options.only, "this step alone, once the instrument is ready", "STEP",
               tune_step_names);
    add_choice(command, "--from", options.from, "this step and those after it", "STEP", tune_step_names);
    command.add_flag("--dry-run", options.dry_run, "say what each step would do, and move nothing");
    command.add_option("--note", options.note, "what to remember beside the record")->type_name("TEXT");
    add_name(command, "-o,--report", options.report, "the report's file (beside the tune logs)", "FILE");
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
