#include "abundance/setpoint_search.h"

#include <cmath>
#include <limits>

namespace korvane {

using End = AdjustOutcome::End;

/// State of one search. Setpoint values are called voltages, as in the log.
struct SetpointSearch::Search {
    ProbeMethod& method;
    SearchRequest request;  // its target is the scaled one once the search is prepared
    SearchLines log;

    double LowVoltage = 0;
    double HighVoltage = 0;
    double Setpoint_Middle = 0;
    double PreviousVoltage = 0;
    double Resolution = 0;
    double BestValue = 0;
    std::int32_t MaxAb = 0;
    std::int32_t MiddleAb = 0;
    double SpeedUpFactor = 1;
    std::int32_t transients_setpoint = 0;
    std::int32_t OriginalNumTrans = 0;
    std::int32_t probes = 0;

    bool has_best() const { return MaxAb > 0; }
};

double SetpointSearch::BinaryAdjustAbundanceDownUsingThisSetpoint(const SearchRequest& request) {
    outcome_ = {};
    log_.switch_off();
    return search_by(normal_, request);
}

bool SetpointSearch::is_fast_chosen() {
    return fast_choice ? *fast_choice : session_.prefs.GetTunePreference("AIC_RunFastVersion") == "Yes";
}

double SetpointSearch::search_by(ProbeMethod& method, const SearchRequest& request) {
    const auto failed = [&](TraceObj& record, RoutineName name, const Error& error) {
        SearchLines(record, log_)("Error[", error.number(), "] in ", name.name, "(): ", error.description());
    };
    return routine(session_.trace, {method.routine_name()}, failed, [&](TraceObj& record) {
        if (&method == &normal_ && is_fast_chosen()) return search_by(fast_, request);
        Search search{method, request, SearchLines(record, log_)};
        prepare(search);
        return run(search);
    });
}

void SetpointSearch::prepare(Search& search) {
    SearchRequest& request = search.request;
    const Segments segments = session_.current_segments();
    const CurrentSetpoints setpoints(session_.instrument, segments);
    search.BestValue = setpoints.value(request.IdxOfSetpointToAdjust);
    search.SpeedUpFactor = session_.limit("Calibration", "AIC_SearchSpeedUpFactor");
    search.transients_setpoint = session_.tune.GetNumTransTuneSPForCurrentSamplingRate();
    search.OriginalNumTrans = setpoints.code(search.transients_setpoint);
    search.method.set_transients(search.transients_setpoint,
                                 checked_quotient(search.OriginalNumTrans, search.SpeedUpFactor));
    request.AbTarget /= search.SpeedUpFactor;
    outcome_.scaled_target = request.AbTarget;
    outcome_.speed_up_factor = search.SpeedUpFactor;

    log_.switch_by_preference();
    search.log(search.method.routine_name(), "(IdxOfSetpointToAdjust[", request.IdxOfSetpointToAdjust, "], mz[",
               request.mz, "], AbTarget[", request.AbTarget, "], dmz[", request.dmz,
               "], bLowerThisSPToReduceAbundance[", request.bLowerThisSPToReduceAbundance, "], StartingMinSPValue[",
               request.StartingMinSPValue, "], StartingMaxSPValue[", request.StartingMaxSPValue, "], SPResolution[",
               request.SPResolution, "]");
    search.log("Original Setpoint value is ", setpoints.value(request.IdxOfSetpointToAdjust));
    set_bounds(search);
}

void SetpointSearch::set_bounds(Search& search) {
    const SearchRequest& request = search.request;
    SetpointTable& table = session_.instrument->setpoints();
    search.Resolution = request.SPResolution == search_value_not_given ? table.resolution(request.IdxOfSetpointToAdjust)
                                                                       : request.SPResolution;
    // Only the upper bound tells whether bounds are given: callers rely on a lone lower bound being ignored.
    if (request.StartingMaxSPValue == search_value_not_given) {
        search.LowVoltage = table.lower_limit(request.IdxOfSetpointToAdjust);
        search.HighVoltage = table.upper_limit(request.IdxOfSetpointToAdjust);
    } else {
        search.LowVoltage = request.StartingMinSPValue;
        search.HighVoltage = request.StartingMaxSPValue;
    }
    search.Setpoint_Middle = search.LowVoltage;
}

double SetpointSearch::run(Search& search) {
    for (;;) {
        session_.raise_if_aborted();
        choose_middle(search);
        if (has_reached_resolution(search)) {
            const End end = search.has_best() ? End::resolution_reached : End::target_never_reached;
            return finish(search, end, search.BestValue, search.MaxAb);
        }
        search.method.apply(search.request.IdxOfSetpointToAdjust, search.Setpoint_Middle, search.log);
        if (measure_middle(search)) {
            note_probe(search);
            return finish(search, End::within_tolerance, search.Setpoint_Middle, search.MiddleAb);
        }
        if (search.probes == std::numeric_limits<std::int32_t>::max()) raise_runtime_fault(error_number::overflow);
        ++search.probes;
        move_bound(search);
        note_probe(search);
    }
}

void SetpointSearch::choose_middle(Search& search) {
    search.PreviousVoltage = search.Setpoint_Middle;
    search.Setpoint_Middle = (search.HighVoltage + search.LowVoltage) / 2;
    search.log("new PreviousVoltage[", search.PreviousVoltage, "]; new Setpoint_Middle = (", search.HighVoltage, " + ",
               search.LowVoltage, ") / 2 = ", search.Setpoint_Middle);
}

bool SetpointSearch::has_reached_resolution(const Search& search) {
    const double step = std::abs(search.Setpoint_Middle - search.PreviousVoltage);
    // A step of 0, or one that is no number, would go on for ever where the resolution is not above 0.
    if (step >= search.Resolution && step > 0) return false;
    search.log("We have reached the limits of resolution on this setpoint; setting final value[", search.BestValue,
               "]; exiting");
    search.log("setting setpoint[", search.request.IdxOfSetpointToAdjust, "] to [", search.BestValue, "]");
    return true;
}

/// Whether the search may stop at the value just measured. An error lets the following statements run before it counts.
bool SetpointSearch::measure_middle(Search& search) {
    CollectedErrors errors;
    bool stop = false;
    search.method.measure({search.request.mz, search.request.AbTarget}, search.MiddleAb, errors, search.log);
    errors.collect([&] { stop = is_within_tolerance(search); });
    if (stop) return true;
    if (const Error* error = errors.serious()) {
        search.log("error[", error->number(), "] in ", search.method.routine_name(), "(): ", error->description(),
                   "; rethrowing internally.");
        throw *error;
    }
    return false;
}

bool SetpointSearch::is_within_tolerance(const Search& search) {
    if (!search.method.may_stop_early(search.request.IdxOfSetpointToAdjust)) return false;
    const double tolerance = session_.limit("Calibration", "BinarySearchAbTolerance");
    const double scaled_tolerance = tolerance * session_.tune.GetNumTransScalingFactor() / search.SpeedUpFactor;
    if (!(std::abs(search.request.AbTarget - search.MiddleAb) < scaled_tolerance)) return false;
    search.log("We have found a value [v,ab]=[", search.Setpoint_Middle, ", ", search.MiddleAb, "] within ",
               search.method.early_stop_range(), "; exiting");
    return true;
}

void SetpointSearch::move_bound(Search& search) {
    const bool is_above = search.MiddleAb > search.request.AbTarget;
    if (!is_above && search.MiddleAb > search.MaxAb) {
        search.method.log_better(search.Setpoint_Middle, search.MiddleAb, search.log);
        search.BestValue = search.Setpoint_Middle;
        search.MaxAb = search.MiddleAb;
    }
    const bool move_high = is_above == search.request.bLowerThisSPToReduceAbundance;
    search.log("AbTarget[", search.request.AbTarget, "], MiddleAb[", search.MiddleAb, "], PreviousVoltage[",
               search.PreviousVoltage, "], Setpoint_Middle[", search.Setpoint_Middle, "], HighVoltage[",
               search.HighVoltage, "], LowVoltage[", search.LowVoltage, "] ==> Moving ",
               move_high ? "High_Boundary down" : "Low_Boundary up");
    (move_high ? search.HighVoltage : search.LowVoltage) = search.Setpoint_Middle;
}

void SetpointSearch::note_probe(const Search& search) {
    outcome_.probes.push_back({static_cast<std::int32_t>(outcome_.probes.size()) + 1, search.Setpoint_Middle,
                               static_cast<double>(search.MiddleAb), search.LowVoltage, search.HighVoltage});
    if (on_probe) on_probe(outcome_.probes.back());
}

double SetpointSearch::finish(const Search& search, End end, double value, std::int32_t abundance) {
    search.log("setting setpoint[", search.transients_setpoint, "] to [", search.OriginalNumTrans, "]");
    search.method.set_transients(search.transients_setpoint, search.OriginalNumTrans);
    outcome_.end = end;
    outcome_.value = value;
    outcome_.abundance = abundance;
    return value;
}

}  // namespace korvane
