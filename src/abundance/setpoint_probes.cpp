#include "abundance/probe_method.h"

namespace korvane {

namespace {
constexpr std::int32_t averaged_spectra = 3;
}  // namespace

void SetpointProbes::write(std::int32_t setpoint, double value) {
    const Segments segments = session_.current_segments();
    CurrentSetpoints(session_.instrument, segments).write(setpoint, value);
}

void SetpointProbes::set_transients(std::int32_t setpoint, double transients) {
    write(setpoint, transients);
}

void SetpointProbes::apply(std::int32_t setpoint, double value, const SearchLines&) {
    write(setpoint, value);
    readiness_.wait_until_ready();
}

void SetpointProbes::measure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                             const SearchLines&) {
    bool averaging = false;
    errors.collect([&] {
        const Segments segments = session_.current_segments();
        averaging = CurrentSetpoints(session_.instrument, segments).value(contract::setpoint.averaging) != 0;
    });
    errors.collect([&] {
        MiddleAb = averaging ? averaged_.GetAveragedPeakAbundance(target.mz, averaged_spectra)
                             : to_int32(calibrants_.GetPeakAbForThisMass(target.mz));
    });
}

bool SetpointProbes::may_stop_early(std::int32_t setpoint) {
    return setpoint != session_.tune.GetSourceSpecificVCapSetpointIndex();
}

}  // namespace korvane
