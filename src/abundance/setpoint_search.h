// Bisection over a setpoint until a peak's abundance comes down to its target.
#pragma once

#include <functional>
#include <optional>

#include "abundance/probe_method.h"
#include "korvane/spectrum_parser.h"

namespace korvane {

/// The caller's wishes, named as on the public face.
struct SearchRequest {
    std::int32_t IdxOfSetpointToAdjust = 0;
    double mz = 0;
    double AbTarget = 0;
    double dmz = 30.0;
    bool bLowerThisSPToReduceAbundance = true;
    double StartingMinSPValue = search_value_not_given;
    double StartingMaxSPValue = search_value_not_given;
    double SPResolution = search_value_not_given;
};

class SetpointSearch {
public:
    SetpointSearch(Session& session, SpectrumAcquisition& acquisition, CalibrantPeaks& calibrants)
        : session_(session), log_(session), normal_(session, calibrants), fast_(session, acquisition, calibrants) {}

    /// The probe that came within tolerance, else the best one at or under the target, else the setpoint's value on
    /// entry. The number of transients is restored unless an error ends the search.
    double BinaryAdjustAbundanceDownUsingThisSetpoint(const SearchRequest& request);

    std::function<void(const AdjustProbe&)> on_probe;
    std::optional<bool> fast_choice;  ///< in the place of the preference
    const AdjustOutcome& last_outcome() const { return outcome_; }

private:
    struct Search;
    bool is_fast_chosen();
    double search_by(ProbeMethod& method, const SearchRequest& request);
    double run(Search& search);

    void prepare(Search& search);
    void set_bounds(Search& search);
    void choose_middle(Search& search);
    bool has_reached_resolution(const Search& search);
    bool measure_middle(Search& search);
    bool is_within_tolerance(const Search& search);
    void move_bound(Search& search);
    void note_probe(const Search& search);
    double finish(const Search& search, AdjustOutcome::End end, double value, std::int32_t abundance);

    Session& session_;
    BinarySearchLog log_;
    SetpointProbes normal_;
    FirmwareProbes fast_;
    AdjustOutcome outcome_;
};

}  // namespace korvane
