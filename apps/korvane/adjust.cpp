// The search for the value of a setpoint at which a peak has an abundance.
#include <algorithm>
#include <cmath>
#include <memory>

#include "calibrants.h"
#include "run_record.h"
#include "search_mark.h"
#include "setpoint_description.h"
#include "text_table.h"

namespace korvane::program {

namespace {

// The fast search writes firmware channel 22, whatever setpoint it is given.
constexpr const char* fast_setpoint = "QuadAMU";

struct AdjustOptions {
    std::string setpoint;
    std::optional<double> mz, target, least, most, resolution;
    bool raise_to_reduce = false, fast = false, apply = false, no_progress = false;
};

struct Bounds {
    double low = 0, high = 0, resolution = 0;
};

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

/// Shows a search while it runs: a bar on a terminal, a line a probe elsewhere.
class AdjustProgress {
public:
    AdjustProgress(Session& session, const Bounds& bounds) : session_(session), bounds_(bounds) {}

    void show(const AdjustProbe& probe) {
        const std::string line = fmt::format("probe {}: {:.6g} gives {:.0f}, bracket {:.6g} to {:.6g}", probe.number,
                                             probe.value, probe.abundance, probe.low, probe.high);
        if (!session_.talk_is_terminal()) return session_.talk(line);
        // The bracket halves with every probe, so its logarithm tells how far the search has come.
        constexpr std::size_t bar_width = 24;
        const double range = bounds_.high - bounds_.low;
        const double bracket = std::max(probe.high - probe.low, bounds_.resolution);
        const double done =
            range > bounds_.resolution ? std::log(range / bracket) / std::log(range / bounds_.resolution) : 1.0;
        const auto filled = static_cast<std::size_t>(std::clamp(done, 0.0, 1.0) * bar_width);
        session_.show_progress(fmt::format("[{:.<{}}] {}", std::string(filled, '#'), bar_width, line));
    }

private:
    Session& session_;
    Bounds bounds_;
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

void show_outcome(Session& session, const SetpointDescription& setpoint, const AdjustOutcome& outcome, bool applied,
                  const Json& record) {
    Json probes = Json::array();
    for (const AdjustProbe& probe : outcome.probes)
        probes.push_back(Json{{"number", probe.number},
                              {"value", probe.value},
                              {"abundance", probe.abundance},
                              {"low", probe.low},
                              {"high", probe.high}});
    TextTable table({"<setpoint", "value", "abundance", "scaled target", "probes", "<end"});
    table.add({fmt::format("{} ({})", setpoint.internal_name, setpoint.index), fmt::format("{:.6g}", outcome.value),
               fmt::format("{:.0f}", outcome.abundance), fmt::format("{:.0f}", outcome.scaled_target),
               fmt::format("{}", outcome.probes.size()), end_text(outcome.end)});
    session.show(Json{{"setpoint", setpoint.index},
                      {"internal_name", setpoint.internal_name},
                      {"value", outcome.value},
                      {"abundance", outcome.abundance},
                      {"scaled_target", outcome.scaled_target},
                      {"speed_up_factor", outcome.speed_up_factor},
                      {"probes_made", outcome.probes.size()},
                      {"end", end_text(outcome.end)},
                      {"applied", applied},
                      {"probes", std::move(probes)},
                      {"record", record}},
                 table);
}

/// Within tolerance, or between a value that shows more and the one found; and with a peak at all.
bool is_reached(const AdjustOutcome& outcome) {
    const auto exceeds = [&](const AdjustProbe& probe) { return probe.abundance > outcome.scaled_target; };
    return outcome.abundance > 0 &&
           (outcome.end == AdjustOutcome::End::within_tolerance ||
            (outcome.end == AdjustOutcome::End::resolution_reached && std::ranges::any_of(outcome.probes, exceeds)));
}

ExitCode adjust(Session& session, const AdjustOptions& options) {
    TuneGlobals globals(session.platform());
    require_mass_in_range(globals, *options.mz);
    const SetpointDescription setpoint = setpoint_named(session, options.setpoint);
    if (options.fast && setpoint.internal_name != fast_setpoint)
        throw UsageError(fmt::format("--fast drives the quadrupole through the firmware; it adjusts {} only, not {}",
                                     fast_setpoint, setpoint.internal_name));
    const Bounds bounds = checked_bounds(setpoint, options);
    session.begin_run();
    RunRecord run(session, {.keep = options.apply, .note = {}}, "adjust");
    session.held = std::make_shared<SearchMark>(session);
    SpectrumParser parser(session.platform());
    AdjustProgress progress(session, bounds);
    if (!options.no_progress) parser.on_adjust_probe([&](const AdjustProbe& probe) { progress.show(probe); });
    // The preference of the fast search is for the quadrupole, too.
    if (options.fast || setpoint.internal_name != fast_setpoint) parser.set_fast_search(options.fast);
    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(setpoint.index, *options.mz, *options.target, 30.0,
                                                      !options.raise_to_reduce, bounds.low, bounds.high,
                                                      bounds.resolution);
    const AdjustOutcome& outcome = parser.last_adjustment();
    const bool is_found = is_reached(outcome);
    const bool applies = options.apply && is_found;
    if (applies) {
        globals.SetMSSetpointValueByIdx(setpoint.index, outcome.value);
        session.keep_moves();
        followed_value(session, setpoint, outcome.value);
    }
    session.talk("tune log " + written_log(parser));
    const Json record =
        applies ? run.keep(parser,
                           [&](TuneRecord& kept) {
                               kept.searches.push_back({setpoint.internal_name,
                                                        *options.mz,
                                                        *options.target,
                                                        setpoint.value,
                                                        outcome.value,
                                                        end_text(outcome.end),
                                                        {}});
                               for (const AdjustProbe& probe : outcome.probes)
                                   kept.searches.back().probes.push_back({probe.value, 0, probe.abundance, 0});
                           })
                : Json();
    show_outcome(session, setpoint, outcome, applies, record);
    if (is_found) return log_and_end(session, parser);
    session.fault = Error(error_number::routine_detected, "",
                          outcome.abundance > 0 ? "the target was never reached" : "there is no signal");
    return ExitCode::check_failed;
}

}  // namespace

void declare_adjust(CLI::App& command, Session& session) {
    AdjustOptions& options =
        runs(command, session, "korvane adjust FragmentTune --mz 566.8885 --target 50000 --max 175 --apply", adjust);
    add_csv(command, session);
    add_setpoint(command, options.setpoint);
    add_number(command, "--mz", options.mz, "m/z of the peak", positive)->required();
    add_number(command, "--target", options.target, "abundance to come down to, counts at the full transients",
               positive)
        ->required();
    add_number(command, "--min", options.least, "lower bound of the search (the setpoint's limit)");
    add_number(command, "--max", options.most, "upper bound of the search (the setpoint's limit)");
    add_number(command, "--resolution", options.resolution, "smallest step worth taking (the setpoint's)", positive);
    command.add_flag("--raise-to-reduce", options.raise_to_reduce, "raising the setpoint lowers the abundance");
    command.add_flag("--fast", options.fast,
                     "search through the firmware, without waiting for readiness (QuadAMU only)");
    command.add_flag("--apply", options.apply, "write the result; without it the setpoint gets its value back");
    command.add_flag("--no-progress", options.no_progress, "do not show the probes while the search runs");
}

}  // namespace korvane::program
