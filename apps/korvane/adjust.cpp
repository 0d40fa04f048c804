// The search for the value of a setpoint at which a peak has an abundance.
#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "korvane/tune_run.h"
#include "run.h"
#include "setpoints.h"

namespace korvane::program {

namespace {

// The fast search writes firmware channel 22, whatever setpoint it is given.
constexpr const char* fast_setpoint = "QuadAMU";

constexpr const char* secant_method = "secant";

struct AdjustOptions {
    RecipeSearch search;  // whose setpoint is named as the user does
    std::string method = "bisection";
    bool fast = false, apply = false, dry_run = false, no_progress = false;
};

/// "10%" or "10".
double percent_of(std::string text) {
    if (text.ends_with('%')) text.pop_back();
    const auto percent = parse_number(text);
    if (!percent || *percent <= 0)
        throw CLI::ValidationError("--around", fmt::format("\"{}\" is no percentage above 0", text));
    return *percent;
}

SecantRequest checked_request(Session& session, const SetpointDescription& setpoint, RecipeSearch search) {
    if (search.around_percent && setpoint.value == 0)
        throw UsageError(fmt::format("--around: setpoint {} ({}) is 0; give --min and --max", setpoint.index,
                                     setpoint.internal_name));
    search.setpoint = setpoint.internal_name;
    const SecantRequest request = secant_request(session.instrument().setpoints(), search);
    require_within_limits(setpoint, *request.low);
    require_within_limits(setpoint, *request.high);
    if (request.low >= request.high)
        throw UsageError(fmt::format("--min {} is not below --max {}", *request.low, *request.high));
    if (*request.resolution <= 0)
        throw UsageError(fmt::format("setpoint {} has no resolution; give --resolution", setpoint.index));
    return request;
}

/// The bracket halves with every probe, so its logarithm tells how far the search has come.
double part_done(const AdjustProbe& probe, const SecantRequest& request) {
    const double range = *request.high - *request.low, resolution = *request.resolution,
                 bracket = std::max(probe.high - probe.low, resolution);
    return range > resolution ? std::log(range / bracket) / std::log(range / resolution) : 1.0;
}

/// What a search came to, whichever it was. Abundances are those of `speed_up_factor` times fewer transients than on
/// entry.
struct Search : SecantOutcome {
    double scaled_target = 0, speed_up_factor = 1;
    Json shown_probes = {};
};

/// How the specified search ended: within tolerance, or between a value that shows more and the one found; and with a
/// peak at all.
Search::End end_of(const AdjustOutcome& outcome, bool raise_to_reduce) {
    using enum Search::End;
    const auto shows_peak = [](const AdjustProbe& probe) { return probe.abundance > 0; };
    const auto exceeds = [&](const AdjustProbe& probe) { return probe.abundance > outcome.scaled_target; };
    if (outcome.abundance > 0 && outcome.end == AdjustOutcome::End::within_tolerance) return within_tolerance;
    if (outcome.abundance > 0 && outcome.end == AdjustOutcome::End::resolution_reached &&
        std::ranges::any_of(outcome.probes, exceeds))
        return resolution_reached;
    if (std::ranges::none_of(outcome.probes, shows_peak)) return no_signal;
    // The ends of what was tried tell which way the abundance goes; noise does not make a quarter of it.
    const auto [least, most] = std::ranges::minmax(outcome.probes, {}, &AdjustProbe::value);
    const double low = raise_to_reduce ? most.abundance : least.abundance,
                 high = raise_to_reduce ? least.abundance : most.abundance;
    return high < 0.75 * low ? wrong_direction : out_of_reach;
}

Search bisect(Session& session, const SetpointDescription& setpoint, const AdjustOptions& options,
              const SecantRequest& request) {
    SpectrumParser parser(session.platform());
    if (!options.no_progress)
        parser.on_adjust_probe([&](const AdjustProbe& probe) {
            session.tell_progress(fmt::format("probe {}: {:.6g} gives {:.0f}, bracket {:.6g} to {:.6g}", probe.number,
                                              probe.value, probe.abundance, probe.low, probe.high),
                                  part_done(probe, request));
        });
    // The preference of the fast search is for the quadrupole, too.
    if (options.fast || setpoint.internal_name != fast_setpoint) parser.set_fast_search(options.fast);
    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(request.setpoint, request.mz, request.target, 30.0,
                                                      request.lower_value_reduces_abundance, *request.low,
                                                      *request.high, *request.resolution);
    const AdjustOutcome& outcome = parser.last_adjustment();
    Search search{{end_of(outcome, options.search.raise_to_reduce), outcome.value, outcome.abundance, 0, {}},
                  outcome.scaled_target,
                  outcome.speed_up_factor};
    Table shown({"|number", "|value", "|abundance", "|low", "|high"});
    for (const auto& [number, value, abundance, low, high] : outcome.probes) {
        shown.add(number, value, abundance, low, high);
        search.probes.push_back({value, 0, abundance * outcome.speed_up_factor, 0});
    }
    search.shown_probes = shown.json();
    return search;
}

Search follow(Session& session, const SetpointDescription&, const AdjustOptions& options,
              const SecantRequest& request) {
    int count = 0;
    const auto show = [&](const SecantProbe& probe) {
        ++count;
        if (!options.no_progress)
            session.tell_progress(fmt::format("probe {}: {:.6g} gives {:.0f} +- {:.0f}, {:.0f} transients", count,
                                              probe.value, probe.abundance, probe.standard_error, probe.transients));
    };
    Search search{adjust_by_secant(session.platform(), request, show), request.target};
    Table shown({"|number", "|value", "|abundance", "|standard_error", "|transients"});
    for (const auto& [value, transients, abundance, standard_error] : search.probes)
        shown.add(shown.size() + 1, value, abundance, standard_error, transients);
    search.shown_probes = shown.json();
    return search;
}

void show_search(Session& session, const SetpointDescription& setpoint, const AdjustOptions& options,
                 const Search& search, const std::optional<MeasuredCalibrant>& reached, bool applied,
                 const Json& record) {
    std::optional<double> height, off_percent;
    if (reached) height = reached->ns.pkHeight, off_percent = (*height / options.search.target - 1) * 100;
    Table table({"<setpoint", "|setpoint", "|internal_name", "|method", "before|before|.6g", "value|value|.6g",
                 "|target", "abundance|reached_abundance|.0f", "error|reached_abundance_error|.0f",
                 "off target %|off_target_percent|+.1f", "|abundance", "|scaled_target", "|speed_up_factor",
                 "probes|probes_made", "<end|end", "|applied", "|probes", "|record"});
    table.add(fmt::format("{} ({})", setpoint.internal_name, setpoint.index), setpoint.index, setpoint.internal_name,
              options.method, setpoint.value, search.value, options.search.target, height,
              reached ? part_of(reached->standard_errors, &PeakUncertainty::height) : Json(), off_percent,
              search.abundance, search.scaled_target, search.speed_up_factor, search.probes.size(), name_of(search.end),
              applied, search.shown_probes, record);
    session.show(table.json().front(), table);
}

ExitCode adjust(Session& session, const AdjustOptions& options) {
    require_mass_in_range(session, options.search.mz);
    const SetpointDescription setpoint = setpoint_named(session, options.search.setpoint);
    const bool by_secant = options.method == secant_method;
    if (options.fast && setpoint.internal_name != fast_setpoint)
        throw UsageError(fmt::format("--fast drives the quadrupole through the firmware; it adjusts {} only, not {}",
                                     fast_setpoint, setpoint.internal_name));
    if (options.fast && by_secant) throw UsageError("--fast: the secant does not go through the firmware");
    const SecantRequest request = checked_request(session, setpoint, options.search);
    session.begin_run();
    RunRecord run(session, {.keep = options.apply, .note = {}}, "adjust");
    session.held = std::make_shared<SearchMark>(session);
    const Search search = (by_secant ? follow : bisect)(session, setpoint, options, request);

    SpectrumParser parser(session.platform());
    std::optional<MeasuredCalibrant> reached;
    if (is_reached(search.end)) {
        session.globals().SetMSSetpointValueByIdx(setpoint.index, search.value);
        reached = measure_calibrants(parser, session.globals(), VariantArray<double>({options.search.mz})).front();
    }
    const bool applies = options.apply && is_reached(search.end);
    if (applies) {
        session.keep_moves();
        followed_value(session, setpoint, search.value);
    }
    if (reached) session.talk("tune log " + written_log(parser.tune_log_path()));
    if (!applies && is_reached(search.end))
        session.talk(fmt::format("nothing written; --apply would set {} ({}) from {:.6g} to {:.6g}",
                                 setpoint.internal_name, setpoint.index, setpoint.value, search.value));
    const auto fill = [&](TuneRecord& kept) {
        kept.log = parser.tune_log_path();
        kept.searches.push_back({setpoint.internal_name, options.search.mz, options.search.target, setpoint.value,
                                 search.value, name_of(search.end), search.probes});
    };
    show_search(session, setpoint, options, search, reached, applies, applies ? run.keep(fill) : Json());
    return log_and_end(session, parser.tune_log_path(), is_reached(search.end) ? "" : name_of(search.end));
}

}  // namespace

void declare_adjust(CLI::App& command, Session& session) {
    AdjustOptions& options =
        runs(command, session, "korvane adjust FragmentTune --mz 566.8885 --target 50000 --max 175 --apply", adjust,
             Prints::table);
    add_setpoint(command, options.search.setpoint);
    add_number(command, "--mz", options.search.mz, "m/z of the peak", positive)->required();
    add_number(command, "--target", options.search.target, "abundance to come down to, counts at the full transients",
               positive)
        ->required();
    add_number(command, "--min", options.search.min, "lower bound of the search (the setpoint's limit)");
    add_number(command, "--max", options.search.max, "upper bound of the search (the setpoint's limit)");
    add_number(command, "--resolution", options.search.resolution, "smallest step worth taking (the setpoint's)",
               positive);
    command
        .add_option_function<std::string>(
            "--around", [&options](const std::string& text) { options.search.around_percent = percent_of(text); },
            "search within so many percent of the present value, such as 10%, in the place of --min and --max")
        ->type_name("PERCENT")
        ->excludes("--min")
        ->excludes("--max");
    add_choice(command, "--method", options.method,
               "bisection, or secant: weighs its readings by their errors, and stops when the value is known", "NAME",
               std::array{"bisection", secant_method})
        ->capture_default_str();
    command.add_flag("--raise-to-reduce", options.search.raise_to_reduce, "raising the setpoint lowers the abundance");
    command.add_flag("--fast", options.fast,
                     "search through the firmware, without waiting for readiness (QuadAMU only)");
    command.add_flag("--apply", options.apply, "write the result; without it the setpoint gets its value back");
    command.add_flag("--dry-run", options.dry_run, "search and tell what would be written, as without --apply")
        ->excludes("--apply");
    command.add_flag("--no-progress", options.no_progress, "do not show the probes while the search runs");
}

}  // namespace korvane::program
