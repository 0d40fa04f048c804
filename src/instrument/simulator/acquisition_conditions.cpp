#include "instrument/simulator/acquisition_conditions.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/simulator/portable_random.h"
#include "instrument/simulator/scene.h"

namespace korvane::simulation {

namespace {

struct SamplingRate {
    double interval_seconds;
    std::int32_t transients_setpoint;
};

constexpr std::array<SamplingRate, 3> sampling_rates{{{1e-9, contract::setpoint.transients_1_ghz},
                                                      {0.5e-9, contract::setpoint.transients_2_ghz},
                                                      {0.25e-9, contract::setpoint.transients_4_ghz}}};

// Beyond these everything saturates or is flat anyway.
constexpr double most_ions = 1e9;
constexpr double most_counts_per_ion = 1e5;
constexpr double least_resolution = 100;

std::size_t rate_slot(std::int32_t sampling_rate_code) {
    return static_cast<std::size_t>(std::clamp(sampling_rate_code, 1, 3) - 1);
}

void apply_responses(const Scene& scene, const embedded::Setpoints& setpoints, AcquisitionConditions& conditions) {
    const auto source_type = static_cast<std::int32_t>(setpoints.actual(contract::setpoint.source_type));
    for (const ResponseCurve& curve : scene.responses) {
        if (!curve.holds_for(source_type, conditions.polarity)) continue;
        const double default_value = embedded::setpoint_definition(curve.setpoint).default_value;
        const double current = setpoints.actual(curve.setpoint);
        if (current == default_value) continue;
        switch (curve.acts_on) {
            case ResponseTarget::ions:
                conditions.transmissions.push_back({&curve, current, default_value});
                break;
            case ResponseTarget::gain:
                conditions.counts_per_ion *= curve.relative(current, default_value, 1000.0);
                break;
            case ResponseTarget::resolution:
                conditions.resolution_limit *= curve.relative(current, default_value, 1000.0);
                break;
        }
    }
}

}  // namespace

bool ResponseCurve::holds_for(std::int32_t source_type, std::int32_t spectrum_polarity) const {
    if (polarity && static_cast<std::int32_t>(*polarity) != spectrum_polarity) return false;
    return sources.empty() || std::ranges::find(sources, source_type) != sources.end();
}

double ResponseCurve::raw(double value, double mz) const {
    const double middle = mass_exponent == 0.0 ? midpoint : midpoint * portable_pow(mz / 1000.0, mass_exponent);
    const double distance = (value - middle) / width;
    switch (shape) {
        case ResponseShape::rising:
            return 1.0 / (1.0 + portable_exp(-distance));
        case ResponseShape::falling:
            return 1.0 / (1.0 + portable_exp(distance));
        case ResponseShape::optimum:
            return 1.0 / (1.0 + distance * distance);
        case ResponseShape::power:
            return value <= 0.0 ? 0.0 : portable_pow(value / middle, exponent);
        case ResponseShape::low_mass_cutoff:
            return value <= 0.0 ? 1.0 : 1.0 / (1.0 + portable_pow(value * middle / mz, exponent));
    }
    return 1.0;
}

double ResponseCurve::relative(double value, double default_value, double mz) const {
    if (value == default_value) return 1.0;
    return std::min(raw(value, mz) / raw(default_value, mz), greatest_response);
}

double AcquisitionConditions::expected_ions(double reference_ions, double mz) const {
    double ions = reference_ions * ion_factor;
    for (const Transmission& transmission : transmissions)
        ions *= transmission.curve->relative(transmission.value, transmission.default_value, mz);
    return std::min(ions, most_ions);
}

double sampling_interval_seconds(std::int32_t sampling_rate_code) {
    return sampling_rates[rate_slot(sampling_rate_code)].interval_seconds;
}

AcquisitionConditions acquisition_conditions(const Scene& scene, std::int32_t polarity,
                                             const embedded::Setpoints& setpoints) {
    const std::size_t rate = rate_slot(static_cast<std::int32_t>(setpoints.actual(contract::setpoint.sampling_rate)));
    AcquisitionConditions conditions;
    conditions.polarity = polarity;
    conditions.sampling_interval_ns = sampling_rates[rate].interval_seconds * 1e9;
    conditions.sample_count =
        static_cast<std::size_t>(scene.instrument.spectrum_duration_ns / conditions.sampling_interval_ns);
    conditions.transients = static_cast<std::int32_t>(setpoints.actual(sampling_rates[rate].transients_setpoint));
    conditions.scan_seconds = conditions.transients / scene.instrument.transients_per_second;

    const auto gain_mode = static_cast<std::size_t>(setpoints.actual(contract::setpoint.preamp_gain_mode));
    conditions.counts_per_ion =
        scene.detector.counts_per_ion[rate] * scene.detector.gain_mode_factors[std::min<std::size_t>(gain_mode, 3)];
    const double baseline = scene.detector.baseline_counts +
                            scene.detector.preamp_offset_counts * setpoints.actual(embedded::preamp_offset_setpoint);
    conditions.baseline_counts = std::clamp(baseline, 0.0, 255.0) * conditions.transients;
    conditions.noise_counts = scene.detector.noise_counts * std::sqrt(static_cast<double>(conditions.transients));

    conditions.resolution_limit = scene.peak_shape.resolution_limit;
    conditions.ion_factor = static_cast<double>(conditions.transients) / scene.sample.reference_transients;
    const auto slicer_position = static_cast<std::size_t>(setpoints.actual(embedded::slicer_position_setpoint)) - 1;
    if (slicer_position < scene.slicer.size() && scene.slicer[slicer_position].high_resolution) {
        conditions.resolution_limit *= scene.peak_shape.high_resolution_factor;
        conditions.ion_factor *= scene.peak_shape.high_resolution_transmission;
    }
    apply_responses(scene, setpoints, conditions);
    conditions.counts_per_ion = std::min(conditions.counts_per_ion, most_counts_per_ion);
    conditions.resolution_limit = std::max(conditions.resolution_limit, least_resolution);
    return conditions;
}

}  // namespace korvane::simulation
