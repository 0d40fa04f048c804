#include <cmath>

#include "abundance/probe_method.h"

namespace korvane {

namespace {
constexpr double far_off_the_target = 0.5;
constexpr int most_repetitions = 4;
}  // namespace

void FirmwareProbes::set_transients(std::int32_t setpoint, double transients) {
    session_.tune.SetMSSetpointValueByIdx(setpoint, transients);
}

void FirmwareProbes::log_channel(std::string_view label, const SearchLines& log) {
    log("Current QuadAMU value in FW ", label,
        session_.instrument->firmware().read(contract::firmware_channel.quad_amu));
}

void FirmwareProbes::apply(std::int32_t, double value, const SearchLines& log) {
    log("Making direct call to FW...");
    const std::int32_t status =
        session_.instrument->firmware().write(contract::firmware_channel.quad_amu, to_single(value));
    log("Direct call returned [", status, "]");
    log_channel("(baseline): ", log);
}

void FirmwareProbes::discard_spectrum(CollectedErrors& errors, const SearchLines& log) {
    errors.collect([&] {
        SpectrumTriple unused;
        bool bUserHasCancelledRampInGUI = false;
        acquisition_.GetNewSpectrumAndVerifyDataIsPopulated(unused, bUserHasCancelledRampInGUI);
    });
    errors.collect([&] { log_channel("after GetNewSpectrum(): ", log); });
}

void FirmwareProbes::measure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                             const SearchLines& log) {
    discard_spectrum(errors, log);
    log("1st MiddleAb = ", MiddleAb);
    discard_spectrum(errors, log);
    errors.collect([&] { MiddleAb = to_int32(calibrants_.GetPeakAbForThisMass(target.mz)); });
    log("1st MiddleAb = ", MiddleAb);
    errors.collect([&] { log_channel("after GetPeakInfos(): ", log); });
    errors.collect([&] { remeasure(target, MiddleAb, errors, log); });
}

void FirmwareProbes::remeasure(const ProbeTarget& target, std::int32_t& MiddleAb, CollectedErrors& errors,
                               const SearchLines& log) {
    const auto deviation = [&] {
        return checked_quotient(std::abs(target.scaled_abundance - MiddleAb), target.scaled_abundance);
    };
    for (int repetition = 1; deviation() > far_off_the_target && repetition <= most_repetitions; ++repetition) {
        errors.collect([&] { MiddleAb = to_int32(calibrants_.GetPeakAbForThisMass(target.mz)); });
        log("resampled MiddleAb = ", MiddleAb);
        log("Abs(AbTarget[", target.scaled_abundance, "] - MiddleAb[", MiddleAb, ") / AbTarget[",
            target.scaled_abundance, "] = ", deviation());
        errors.collect([&] { log_channel("after GetPeakInfos(): ", log); });
    }
}

void FirmwareProbes::log_better(double value, std::int32_t abundance, const SearchLines& log) const {
    log("Better Ab found: New MaxSPValue, MaxAb = [", value, ", ", abundance, "]");
}

}  // namespace korvane
