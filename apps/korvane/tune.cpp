// A whole tune by a recipe, its record and its report.
#include <algorithm>

#include "calibrants.h"
#include "commands.h"
#include "korvane/tune_run.h"
#include "pictures.h"
#include "run_record.h"
#include "search_mark.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct TuneOptions {
    std::optional<std::string> recipe, report;
    std::string only, from, note;
    bool dry_run = false;
};

std::vector<std::string> step_names() {
    return {std::begin(tune_step_names), std::end(tune_step_names)};
}

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
    switch (step) {
        case TuneStep::ready:
            return "ask whether the instrument is ready";
        case TuneStep::verify:
            return "look for enough calibrants";
        case TuneStep::adjust:
            return searches.empty() ? "nothing to adjust" : "search " + searches;
        case TuneStep::fit:
            return fmt::format("fit the calibration to {} spectra, write it where it is better", recipe.fit_spectra);
        case TuneStep::measure:
            break;
    }
    return recipe.masses.empty() ? "measure and judge the calibrants"
                                 : fmt::format("measure and judge {} masses", recipe.masses.size());
}

/// What the steps have come to; noted for the end after each, so that a failure shows what was done before it.
class StepTable {
public:
    explicit StepTable(Session& session) : session_(session) { object["steps"] = Json::array(); }

    void add(const std::string& step, const std::string& result) {
        object["steps"].push_back(Json{{"step", step}, {"result", result}});
        table_.add({step, result});
        show();
    }
    void show() { session_.show(object, table_); }

    Json object;

private:
    Session& session_;
    TextTable table_{{"<step", "<result"}};
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
        session.talk_is_terminal() ? session.show_progress(line) : session.talk(line);
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
    const std::string file = options.report.value_or(report_name(session, record));
    TuneHistory history = open_history(session, false);
    save_text(session, file, report_page(history, record));
    steps.object["verdict"] = record.verdict;
    steps.object["report"] = file;
    steps.add("report", file);
    if (fault.empty()) return ExitCode::done;
    session.fault = Error(error_number::routine_detected, "", fault);
    return ExitCode::check_failed;
}

}  // namespace

void declare_tune(CLI::App& command, Session& session) {
    TuneOptions& options = runs(command, session, "korvane tune --from fit", tune);
    add_name(command, "RECIPE", options.recipe, "what to do (TuneRecipe.json of the base folder)", "FILE");
    command.add_option("--only", options.only, "this step alone, once the instrument is ready")
        ->type_name("STEP")
        ->check(CLI::IsMember(step_names()));
    command.add_option("--from", options.from, "this step and those after it")
        ->type_name("STEP")
        ->check(CLI::IsMember(step_names()));
    command.add_flag("--dry-run", options.dry_run, "say what each step would do, and move nothing");
    command.add_option("--note", options.note, "what to remember beside the record")->type_name("TEXT");
    add_name(command, "-o,--report", options.report, "the report's file (beside the tune logs)", "FILE");
}

}  // namespace korvane::program
