// Setpoints, named by index or by internal name: get, set, list, and the search for the value of an abundance.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>
#include <memory>

#include "calibrants.h"
#include "commands.h"
#include "known_names.h"
#include "korvane/instrument_contract.h"
#include "run_record.h"
#include "search_mark.h"
#include "setpoint_description.h"
#include "suggestion.h"
#include "text_table.h"

namespace korvane::program {

namespace {

using Words = std::vector<std::pair<std::string, double>>;

template <class Entries>
Words words_of(const Entries& group) {
    Words words;
    for (const contract::Number& entry : contract::entries<contract::Number>(group))
        words.emplace_back(entry.name, entry.key);
    return words;
}

/// The words that stand for the values of a setpoint.
Words value_words(std::int32_t index) {
    switch (index) {
        case contract::setpoint.polarity.key:
            return words_of(contract::polarity);
        case contract::setpoint.sampling_rate.key:
            return words_of(contract::sampling_rate);
        case contract::setpoint.preamp_gain_mode.key:
            return words_of(contract::preamp_gain_mode);
        case contract::setpoint.mass_range.key:
            return {{"low", 0}, {"standard", 1}, {"high", 2}};
    }
    for (const contract::Number& entry : contract::entries<contract::Number>(contract::setpoint))
        if (entry.key == index && std::string_view(entry.unit) == "flag") return {{"off", 0}, {"on", 1}};
    return {};
}

double value_named(const SetpointDescription& setpoint, const std::string& text) {
    if (const auto number = parse_number(text)) return *number;
    std::string known;
    for (const auto& [word, value] : value_words(setpoint.index)) {
        if (same_but_for_case(word, text)) return value;
        known += ", " + word;
    }
    throw UsageError(
        fmt::format("\"{}\" is not a number{}", text, known.empty() ? "" : ", and none of" + known.substr(1)));
}

CLI::Option* add_setpoint(CLI::App& command, std::string& setpoint) {
    return command.add_option("SETPOINT", setpoint, "index or name (korvane setpoint list)")->required();
}

Json setpoint_json(const SetpointDescription& setpoint) {
    return Json{{"index", setpoint.index},
                {"internal_name", setpoint.internal_name},
                {"external_name", setpoint.external_name},
                {"value", setpoint.value},
                {"lower_limit", setpoint.lower},
                {"upper_limit", setpoint.upper},
                {"resolution", setpoint.resolution},
                {"type", setpoint.type}};
}

ExitCode show_setpoint(Session& session, SetpointDescription setpoint, double value) {
    setpoint.value = value;
    return session.show(setpoint_json(setpoint), fmt::format("{}\n", value));
}

// It only reads, and so does not ask for the abort flag as the class does.
ExitCode get_setpoint(Session& session, const std::string& name) {
    const SetpointDescription setpoint = setpoint_named(session, name);
    return show_setpoint(session, setpoint, setpoint.value);
}

struct SetpointChange {
    std::string setpoint;
    std::optional<std::string> value;
    std::optional<double> delta, wait_seconds;
    bool until_set = false;
};

ExitCode set_setpoint(Session& session, const SetpointChange& options) {
    if (options.value.has_value() == options.delta.has_value()) throw UsageError("give either a value or --delta");
    const SetpointDescription setpoint = setpoint_named(session, options.setpoint);
    const double wanted = options.value ? value_named(setpoint, *options.value) : setpoint.value + *options.delta;
    require_whole(setpoint, wanted);
    require_within_limits(setpoint, wanted);
    session.begin_run();
    const auto stays = [&](void*) { session.keep_moves(); };  // also where it was not seen to arrive
    const std::unique_ptr<void, decltype(stays)> at_end(&session, stays);
    TuneGlobals globals(session.platform());
    try {
        globals.SetMSSetpointValueByIdx(setpoint.index, wanted, 0, static_cast<float>(options.wait_seconds.value_or(0)),
                                        options.until_set);
    } catch (const Error& error) {
        const std::string item = globals.unreported_item();
        if (error.number() != error_number::setpoint_not_reached || item.empty()) throw;
        throw error.described(error.description() + "; no spectrum reported [" + item + "]");
    }
    return show_setpoint(session, setpoint, followed_value(session, setpoint, wanted));
}

ExitCode list_setpoints(Session& session, const NoOptions&) {
    Json rows = Json::array();
    TextTable table({"index", "<internal name", "value", "lower", "upper", "resolution", "<type", "<external name"});
    for (const std::int32_t index : session.instrument().setpoints().indexes()) {
        const SetpointDescription row = describe_setpoint(session, index);
        rows.push_back(setpoint_json(row));
        table.add_row(row.index, row.internal_name, row.value, row.lower, row.upper, row.resolution, row.type,
                      row.external_name);
    }
    return session.show(Json{{"setpoints", std::move(rows)}}, table);
}

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

void declare_setpoint(CLI::App& group, Session& session) {
    const auto [get, name] = add_command(group, session, "get", "print a setpoint's value",
                                         "korvane setpoint get FragmentTune", get_setpoint);
    add_setpoint(get, name);

    const auto [set, change] = add_command(group, session, "set", "change a setpoint and print the value read back",
                                           "korvane setpoint set FragmentTune --delta -5 --until-set", set_setpoint);
    add_setpoint(set, change.setpoint);
    set.add_option("VALUE", change.value, "the new value, or its word: Negative, on");
    add_number(set, "--delta", change.delta, "add this to the value instead");
    add_number(set, "--wait", change.wait_seconds, "wait so many seconds after the change",
               {.above = 0, .below = 86400});
    set.add_flag("--until-set", change.until_set, "return when a spectrum shows the new value; exit code 5 after 15 s");

    add_csv(add_command(group, session, "list", "print all setpoints", "korvane setpoint list", list_setpoints).first,
            session);
    declare_setpoint_files(group, session);
}

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
