// How one probe of the abundance search is applied and measured: what tells the normal search from the fast one.
#pragma once

#include <cstdint>
#include <string_view>

#include "abundance/averaged_abundance.h"
#include "abundance/binary_search_log.h"
#include "abundance/collected_errors.h"
#include "abundance/readiness.h"
#include "spectrum/acquisition.h"

namespace korvane {

/// What a probe measures.
struct ProbeTarget {
    double mz = 0;
    double scaled_abundance = 0;  ///< at the reduced number of transients
};

class ProbeMethod {
public:
    virtual ~ProbeMethod() = default;

    virtual std::string_view routine_name() const = 0;
    /// How near the early stop says it came.
    virtual std::string_view early_stop_range() const = 0;
    virtual void set_transients(std::int32_t setpoint, double transients) = 0;
    virtual void apply(std::int32_t setpoint, double value, const SearchLines& log) = 0;
    /// Leaves `MiddleAb` as it is where the measurement fails; errors are collected, statement by statement.
    virtual void measure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                         const SearchLines& log) = 0;
    virtual bool may_stop_early(std::int32_t setpoint) = 0;
    virtual void log_better(double value, std::int32_t abundance, const SearchLines& log) const = 0;
};

/// Through the setpoint table, with the wait for readiness.
class SetpointProbes final : public ProbeMethod {
public:
    SetpointProbes(Session& session, CalibrantPeaks& calibrants)
        : session_(session), calibrants_(calibrants), readiness_(session), averaged_(session, calibrants) {}

    std::string_view routine_name() const override { return "BinaryAdjustAbundanceDownUsingThisSetpoint"; }
    std::string_view early_stop_range() const override { return "20k Ab of target"; }
    void set_transients(std::int32_t setpoint, double transients) override;
    void apply(std::int32_t setpoint, double value, const SearchLines& log) override;
    void measure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                 const SearchLines& log) override;
    /// Not for the capillary voltage, which is always searched to the limit of its resolution.
    bool may_stop_early(std::int32_t setpoint) override;
    void log_better(double, std::int32_t, const SearchLines&) const override {}

private:
    void write(std::int32_t setpoint, double value);

    Session& session_;
    CalibrantPeaks& calibrants_;
    Readiness readiness_;
    AveragedAbundance averaged_;
};

/// Straight to the instrument firmware, without a wait; measurements far off the target are repeated.
class FirmwareProbes final : public ProbeMethod {
public:
    FirmwareProbes(Session& session, SpectrumAcquisition& acquisition, CalibrantPeaks& calibrants)
        : session_(session), acquisition_(acquisition), calibrants_(calibrants) {}

    std::string_view routine_name() const override { return "BinaryAdjustAbundanceDownUsingThisSetpoint_Fast"; }
    std::string_view early_stop_range() const override { return "close range of Ab target"; }
    void set_transients(std::int32_t setpoint, double transients) override;
    void apply(std::int32_t setpoint, double value, const SearchLines& log) override;
    void measure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                 const SearchLines& log) override;
    bool may_stop_early(std::int32_t) override { return true; }
    void log_better(double value, std::int32_t abundance, const SearchLines& log) const override;

private:
    void discard_spectrum(CollectedErrors& errors, const SearchLines& log);
    void remeasure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors, const SearchLines& log);
    void log_channel(std::string_view label, const SearchLines& log);

    Session& session_;
    SpectrumAcquisition& acquisition_;
    CalibrantPeaks& calibrants_;
};

}  // namespace korvane
