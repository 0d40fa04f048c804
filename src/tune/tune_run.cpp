#include "korvane/tune_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "korvane/error.h"
#include "korvane/instrument_contract.h"
#include "korvane/tune_history.h"
#include "tune/base_file.h"

namespace korvane {

namespace {

/// Holds a recipe against the instrument before anything moves.
void require_possible(const TuneRecipe& recipe, const BaseFile& file, SetpointTable& table) {
    TuneGlobals globals(file.platform);
    const auto refuse = [&](const std::string& place, const std::string& why) { file.refuse(place + ": " + why); };
    const auto require_positive = [&](const std::string& place, std::optional<double> number) {
        if (number && !(*number > 0)) refuse(place, fmt::format("{} is not above 0", *number));
    };
    const auto require_mass = [&](const std::string& place, double mass) {
        require_positive(place, mass);
        if (!globals.IsThisMassInCurrentMassRange(mass)) refuse(place, fmt::format("{} is out of range", mass));
    };
    if (recipe.schema != 1) refuse("schema", fmt::format("this program knows 1, not {}", recipe.schema));
    if (recipe.fit_spectra < 1 || recipe.fit_spectra > 10000) refuse("fit_spectra", "not 1 to 10000");
    for (const double mass : recipe.masses) require_mass("masses", mass);
    const auto indexes = table.indexes();
    for (std::size_t i = 0; i < recipe.searches.size(); ++i) {
        const RecipeSearch& search = recipe.searches[i];
        const std::string place = fmt::format("adjust[{}]", i);
        const auto index = std::ranges::find(indexes, search.setpoint,
                                             [&](std::int32_t candidate) { return table.internal_name(candidate); });
        if (index == indexes.end()) refuse(place + ".setpoint", "there is no setpoint " + search.setpoint);
        const double least = table.lower_limit(*index), most = table.upper_limit(*index);
        for (const auto& [key, bound] : {std::pair{".min", search.min}, std::pair{".max", search.max}})
            if (bound && !(*bound >= least && *bound <= most))
                refuse(place + key,
                       fmt::format("{} lies outside the limits of {}, {} to {}", *bound, search.setpoint, least, most));
        if (!(search.min.value_or(least) < search.max.value_or(most))) refuse(place + ".min", "not below max");
        require_mass(place + ".mz", search.mz);
        require_positive(place + ".target", search.target);
        require_positive(place + ".tolerance_percent", search.tolerance_percent);
        require_positive(place + ".around_percent", search.around_percent);
        const SecantRequest request = secant_request(table, search);
        require_positive(place + ".resolution", request.resolution);
        if (!(request.low < request.high))
            refuse(place + ".around_percent", fmt::format("nothing lies around {} between the bounds",
                                                          number_of(table.value(*index, 0, 0), search.setpoint)));
    }
}

class TuneRun {
public:
    using Tell = std::function<void(const TuneProgress&)>;

    TuneRun(const Platform& platform, const TuneRecipe& recipe, TuneRecord& record, const Tell& tell)
        : platform_(platform), globals_(platform), parser_(platform), recipe_(recipe), record_(record), tell_(tell) {}

    /// Why the tune is not good, empty where it is so far.
    std::string run(TuneStep step) {
        step_ = step;
        globals_.WriteLineToTuneLogFile(fmt::format("TUNE: step {}", tune_step_names[static_cast<std::size_t>(step)]));
        record_.log = globals_.tune_log_path();
        constexpr std::string (TuneRun::*steps[])() = {&TuneRun::require_ready, &TuneRun::verify, &TuneRun::adjust,
                                                       &TuneRun::fit, &TuneRun::measure};
        const auto run_step = steps[static_cast<std::size_t>(step)];
        return (this->*run_step)();
    }

private:
    void tell(const std::string& text, bool is_done = true) {
        if (is_done) globals_.WriteLineToTuneLogFile("TUNE: " + text);
        if (tell_) tell_({step_, text, is_done});
    }

    std::string require_ready() {
        const char* const state = contract::instrument_register.not_ready_state.key;
        if (number_of(open_globals(*platform_.instrument)->actual_value(state, contract::not_ready_state_type), state) <
            -0.5)
            throw Error(error_number::routine_detected, "run_tune", "the instrument is not ready");
        tell("the instrument is ready");
        return {};
    }

    std::string verify() {
        parser_.VerifyInstrumentIsShowingValidCalibrantSpectrum();
        tell("the spectrum shows enough calibrants");
        return {};
    }

    std::string adjust() {
        if (recipe_.searches.empty()) tell("nothing to adjust");
        const auto view = open_globals(*platform_.instrument);
        for (const RecipeSearch& search : recipe_.searches) {
            RecordedSearch& done = record_.searches.emplace_back();
            done = {search.setpoint, search.mz, search.target, 0, 0, {}, {}};
            done.before = globals_.GetMSSetpointValueByInternalName(search.setpoint);
            const auto show = [&](const SecantProbe& probe) {
                tell(fmt::format("{} at {:g} gives {:.0f} counts", search.setpoint, probe.value, probe.abundance),
                     false);
            };
            const SecantOutcome outcome = adjust_by_secant(platform_, secant_request(view->setpoints(), search), show);
            done.after = outcome.value;
            done.end = name_of(outcome.end);
            done.probes = outcome.probes;
            tell(fmt::format("{} {:g} -> {:g} for {:.0f} counts at m/z {:.4f}: {}", search.setpoint, done.before,
                             done.after, search.target, search.mz, done.end));
            if (!is_reached(outcome.end)) return fmt::format("adjust {}: {}", search.setpoint, done.end);
        }
        return {};
    }

    std::string fit() {
        tell(fmt::format("measuring {} spectra", recipe_.fit_spectra), false);
        const CalibrationObject before = globals_.GetCurrentCalibrationObjFromDD();
        const CalibrationFit fit = fit_calibration(
            measure_calibrant_times(parser_, globals_, default_masses(*open_globals(*platform_.instrument), globals_),
                                    static_cast<std::size_t>(recipe_.fit_spectra)),
            *before);
        record_.residuals = fit.calibrants;
        if (fit.is_better()) {
            keep_calibration(platform_);
            globals_.WriteThisCalibrationObjToDD(fit.calibration);
        }
        tell(fmt::format(
            "{} calibrants, {:.2f} ppm off the calibration before, left out {:.2f} ppm off the fitted one: {}",
            fit.used, fit.before_ppm, fit.left_out_ppm, fit.is_better() ? "written" : "not better, not written"));
        return {};
    }

    std::string measure() {
        const auto masses = recipe_.masses.empty() ? default_masses(*open_globals(*platform_.instrument), globals_)
                                                   : VariantArray<double>(recipe_.masses);
        measure_record(record_, platform_, globals_, masses);
        const auto good = std::ranges::count_if(record_.calibrants, [](const RecordedCalibrant& calibrant) {
            return calibrant.verdict.state == CalibrantState::ok;
        });
        tell(fmt::format("{} of {} calibrants ok", good, record_.calibrants.size()));
        return record_.verdict == "ok" ? "" : record_.verdict;
    }

    const Platform platform_;
    TuneGlobals globals_;
    SpectrumParser parser_;
    const TuneRecipe& recipe_;
    TuneRecord& record_;
    const Tell& tell_;
    TuneStep step_ = TuneStep::ready;
};

}  // namespace

SecantRequest secant_request(SetpointTable& table, const RecipeSearch& search) {
    const std::int32_t index = table.index_of(search.setpoint);
    SecantRequest request{.setpoint = index,
                          .mz = search.mz,
                          .target = search.target,
                          .relative_tolerance = search.tolerance_percent / 100,
                          .lower_value_reduces_abundance = !search.raise_to_reduce,
                          .low = search.min.value_or(table.lower_limit(index)),
                          .high = search.max.value_or(table.upper_limit(index)),
                          .resolution = search.resolution.value_or(table.resolution(index))};
    if (search.around_percent) {
        const double present = number_of(table.value(index, 0, 0), search.setpoint);
        const double reach = std::abs(present) * *search.around_percent / 100;
        request.low = std::max(*request.low, present - reach);
        request.high = std::min(*request.high, present + reach);
    }
    return request;
}

TuneRecipe read_tune_recipe(const Platform& platform, const std::string& path) {
    BaseFile file(platform, "TuneRecipe.json", "read_tune_recipe");
    if (!path.empty()) file.path = path;
    const auto object = file.read();
    if (!object) file.refuse("there is no such file");
    TuneRecipe recipe;
    read_fields(file, *object, recipe);
    require_possible(recipe, file, open_globals(*platform.instrument)->setpoints());
    return recipe;
}

std::string run_tune(const Platform& platform, const TuneRecipe& recipe, std::span<const TuneStep> steps,
                     TuneRecord& record, const std::function<void(const TuneProgress&)>& tell) {
    TuneRun run(platform, recipe, record, tell);
    for (const TuneStep step : steps)
        if (const std::string fault = run.run(step); !fault.empty()) {
            record.verdict = fault;
            return fault;
        }
    return {};
}

}  // namespace korvane
