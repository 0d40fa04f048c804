#include <fmt/format.h>

#include "adjust_progress.h"
#include "calibrants.h"
#include "commands.h"
#include "number_options.h"
#include "setpoints.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct AdjustOptions {
    std::string setpoint;
    std::optional<double> mz, target, least, most, resolution;
    bool raise_to_reduce = false, fast = false, apply = false, no_progress = false;
};

// The fast search writes firmware channel 22, whatever setpoint it is given.
constexpr const char* fast_setpoint = "QuadAMU";

struct Bounds {
    double low = 0, high = 0, resolution = 0;
};

const char* end_text(AdjustOutcome::End end) {
    switch (end) {
        case AdjustOutcome::End::within_tolerance:
            return "within tolerance";
        case AdjustOutcome::End::resolution_reached:
            return "resolution reached";
        case AdjustOutcome::End::target_never_reached:
            return "target never reached";
    }
    return "";
}

// A bound left out is the setpoint's limit.
Bounds checked_bounds(const SetpointDescription& setpoint, const AdjustOptions& options) {
    const Bounds bounds{options.least.value_or(setpoint.lower), options.most.value_or(setpoint.upper),
                        options.resolution.value_or(setpoint.resolution)};
    require_within_limits(setpoint, bounds.low);
    require_within_limits(setpoint, bounds.high);
    if (bounds.low >= bounds.high)
        throw UsageError(fmt::format("--min {} is not below --max {}", bounds.low, bounds.high));
    if (bounds.resolution <= 0)
        throw UsageError(fmt::format("setpoint {} has no resolution; give --resolution", setpoint.index));
    return bounds;
}

Json outcome_json(const SetpointDescription& setpoint, const AdjustOutcome& outcome, bool applied) {
    Json probes = Json::array();
    for (const AdjustProbe& probe : outcome.probes)
        probes.push_back(Json{{"number", probe.number},
                              {"value", probe.value},
                              {"abundance", probe.abundance},
                              {"low", probe.low},
                              {"high", probe.high}});
    return Json{{"setpoint", setpoint.index},
                {"internal_name", setpoint.internal_name},
                {"value", outcome.value},
                {"abundance", outcome.abundance},
                {"scaled_target", outcome.scaled_target},
                {"speed_up_factor", outcome.speed_up_factor},
                {"probes_made", outcome.probes.size()},
                {"end", end_text(outcome.end)},
                {"applied", applied},
                {"probes", std::move(probes)}};
}

std::string outcome_text(const SetpointDescription& setpoint, const AdjustOutcome& outcome) {
    TextTable table(
        {{"setpoint", Align::left}, {"value"}, {"abundance"}, {"scaled target"}, {"probes"}, {"end", Align::left}});
    table.add({fmt::format("{} ({})", setpoint.internal_name, setpoint.index), fmt::format("{:.6g}", outcome.value),
               fmt::format("{:.0f}", outcome.abundance), fmt::format("{:.0f}", outcome.scaled_target),
               fmt::format("{}", outcome.probes.size()), end_text(outcome.end)});
    return table.text();
}

void search(Session& session, SpectrumParser& parser, std::int32_t index, const AdjustOptions& options,
            const Bounds& bounds) {
    AdjustProgress progress(session, bounds.high - bounds.low, bounds.resolution);
    if (!options.no_progress) parser.on_adjust_probe([&](const AdjustProbe& probe) { progress.show(probe); });
    if (options.fast) parser.set_fast_search(true);
    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(index, *options.mz, *options.target, 30.0,
                                                      !options.raise_to_reduce, bounds.low, bounds.high,
                                                      bounds.resolution);
    parser.on_adjust_probe({});
}

ExitCode run_adjust(Session& session, const AdjustOptions& options) {
    TuneGlobals globals(session.platform());
    require_mass_in_range(globals, *options.mz);
    const auto setpoint = describe_setpoint(session, setpoint_index(session, options.setpoint));
    if (options.fast && setpoint.internal_name != fast_setpoint)
        throw UsageError(fmt::format("--fast drives the quadrupole through the firmware; it adjusts {} only, not {}",
                                     fast_setpoint, setpoint.internal_name));
    const Bounds bounds = checked_bounds(setpoint, options);
    SpectrumParser parser(session.platform());
    search(session, parser, setpoint.index, options, bounds);

    const AdjustOutcome& outcome = parser.last_adjustment();
    if (options.apply) globals.SetMSSetpointValueByIdx(setpoint.index, outcome.value);
    session.talk("tune log " + written_log(parser));
    if (session.json)
        session.print_json(outcome_json(setpoint, outcome, options.apply));
    else
        session.print(outcome_text(setpoint, outcome));
    return ExitCode::done;
}

}  // namespace

void add_adjust(CLI::App& program, Session& session) {
    auto options = std::make_shared<AdjustOptions>();
    CLI::App* command = add_command(program, session, "adjust",
                                    "search the setpoint value that brings a peak's abundance down to a target",
                                    "korvane adjust FragmentTune --mz 566.8885 --target 50000 --max 250 --apply");
    command->add_option("SETPOINT", options->setpoint, "index or internal name (korvane setpoint list)")->required();
    add_number(*command, "--mz", options->mz, "m/z of the peak", positive)->required();
    add_number(*command, "--target", options->target, "abundance to come down to, counts at the full transients",
               positive)
        ->required();
    add_number(*command, "--min", options->least, "lower bound of the search (the setpoint's limit)");
    add_number(*command, "--max", options->most, "upper bound of the search (the setpoint's limit)");
    add_number(*command, "--resolution", options->resolution, "smallest step worth taking (the setpoint's)", positive);
    command->add_flag("--raise-to-reduce", options->raise_to_reduce, "raising the setpoint lowers the abundance");
    command->add_flag("--fast", options->fast,
                      "search through the firmware, without waiting for readiness (QuadAMU only)");
    command->add_flag("--apply", options->apply, "write the result; without it the last probe stands");
    command->add_flag("--no-progress", options->no_progress, "do not show the probes while the search runs");
    on_run(command, session, options, run_adjust);
}

}  // namespace korvane::program
