#include "instrument/simulator/expected_signal.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "instrument/simulator/random_stream.h"
#include "korvane/error.h"
#include "korvane/peak_finder.h"
#include "platform/text.h"

namespace korvane::simulation {

namespace {

/// By the code of the sampling rate, from 1 on: 1, 2 and 4 GHz.
constexpr std::array transients_setpoints{contract::setpoint.transients_1_ghz.key,
                                          contract::setpoint.transients_2_ghz.key,
                                          contract::setpoint.transients_4_ghz.key};

// Beyond these everything saturates or is flat anyway.
constexpr double most_ions = 1e9;
constexpr double most_counts_per_ion = 1e5;
constexpr double least_resolution = 100;

void apply_responses(const Scene& scene, const embedded::Setpoints& setpoints, AcquisitionConditions& conditions) {
    const auto source_type = static_cast<std::int32_t>(setpoints.actual(contract::setpoint.source_type));
    for (const ResponseCurve& curve : scene.responses) {
        if (!curve.holds_for(source_type, conditions.polarity)) continue;
        const double value = setpoints.actual(curve.setpoint);
        if (curve.acts_on == ResponseTarget::ions)
            conditions.transmissions.emplace_back(&curve, value);
        else
            (curve.acts_on == ResponseTarget::gain ? conditions.counts_per_ion : conditions.resolution_limit) *=
                curve.relative(value, 1000.0);
    }
}

constexpr double negligible_ions = 1e-5;             // expected in one sample
constexpr std::size_t most_peak_samples = 20000000;  // of all peaks together: 160 MB

/// Fills in the samples of a peak; there may be none. `room` is left for further ones.
void fill_in(ExpectedPeak& peak, const PeakShape& shape, std::size_t spectrum_samples, std::size_t& room) {
    const double per_density = peak.ions / peak.total_sigma_samples;
    if (per_density * 0.4 < negligible_ions) return;
    const double left = -std::sqrt(2.0 * std::log(per_density * 0.4 / negligible_ions));
    const double right = shape.reach(negligible_ions / per_density);
    const double low = std::ceil(peak.centre_samples + std::max(left, PeakShape::first) * peak.total_sigma_samples);
    const double high = std::floor(peak.centre_samples + right * peak.total_sigma_samples);
    const double last_sample = static_cast<double>(spectrum_samples) - 1.0;
    if (high < 0.0 || low > last_sample) return;
    peak.first_sample = static_cast<std::size_t>(std::max(low, 0.0));
    const std::size_t count = static_cast<std::size_t>(std::min(high, last_sample)) + 1 - peak.first_sample;
    if (count > room)
        raise_runtime_fault(error_number::invalid_call, "the peaks have more than ", most_peak_samples, " samples");
    room -= count;
    for (std::size_t i = 0; i < count; ++i) {
        const double x = (static_cast<double>(peak.first_sample + i) - peak.centre_samples) / peak.total_sigma_samples;
        peak.samples.push_back(per_density * shape.density(x));
    }
}

}  // namespace

bool ResponseCurve::holds_for(std::int32_t source_type, std::int32_t spectrum_polarity) const {
    if (polarity && static_cast<std::int32_t>(*polarity) != spectrum_polarity) return false;
    return sources.empty() || std::ranges::find(sources, source_type) != sources.end();
}

double ResponseCurve::raw(double value, double mz) const {
    const double middle = mass_exponent == 0.0 ? midpoint : midpoint * std::pow(mz / 1000.0, mass_exponent);
    const double distance = (value - middle) / width;
    switch (shape) {
        case ResponseShape::rising:
            return 1.0 / (1.0 + std::exp(-distance));
        case ResponseShape::falling:
            return 1.0 / (1.0 + std::exp(distance));
        case ResponseShape::optimum:
            return 1.0 / (1.0 + distance * distance);
        case ResponseShape::power:
            return value <= 0.0 ? 0.0 : std::pow(value / middle, exponent);
        case ResponseShape::low_mass_cutoff:
            return value <= 0.0 ? 1.0 : 1.0 / (1.0 + std::pow(value * middle / mz, exponent));
    }
    return 1.0;
}

double ResponseCurve::relative(double value, double mz) const {
    const double default_value = embedded::setpoint_definition(setpoint).default_value;
    if (value == default_value) return 1.0;
    return std::min(raw(value, mz) / raw(default_value, mz), greatest_response);
}

double AcquisitionConditions::expected_ions(double reference_ions, double mz) const {
    double ions = reference_ions * ion_factor;
    for (const auto& [curve, value] : transmissions) ions *= curve->relative(value, mz);
    return std::min(ions, most_ions);
}

AcquisitionConditions acquisition_conditions(const Scene& scene, std::int32_t polarity,
                                             const embedded::Setpoints& setpoints) {
    const auto rate = static_cast<std::size_t>(setpoints.actual(contract::setpoint.sampling_rate)) - 1;
    AcquisitionConditions conditions;
    conditions.polarity = polarity;
    conditions.sampling_interval_ns = 1.0 / (1 << rate);
    conditions.sample_count =
        static_cast<std::size_t>(scene.instrument.spectrum_duration_ns / conditions.sampling_interval_ns);
    conditions.transients = static_cast<std::int32_t>(setpoints.actual(transients_setpoints.at(rate)));
    conditions.scan_seconds = conditions.transients / scene.instrument.transients_per_second;

    const auto gain_mode = static_cast<std::size_t>(setpoints.actual(contract::setpoint.preamp_gain_mode));
    conditions.counts_per_ion = scene.detector.counts_per_ion[rate] * scene.detector.gain_mode_factors.at(gain_mode);
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

PeakPlace peak_place(double flight_time_ns, double time_factor, double resolution_limit, const PeakShapeSetup& setup) {
    PeakPlace place;
    place.arrival_sigma_ns = flight_time_ns / (2.0 * resolution_limit) / fwhm_per_sigma;
    const double detector_ns = setup.detector_width_ns / fwhm_per_sigma;
    place.total_sigma_ns = std::sqrt(place.arrival_sigma_ns * place.arrival_sigma_ns + detector_ns * detector_ns);
    place.centre_ns = flight_time_ns * time_factor - setup.reference_sigmas * place.total_sigma_ns;
    return place;
}

// The delayed part is a Gaussian convolved with exp(-x / length) / length.
PeakShape::PeakShape(double tail_fraction, double tail_length) {
    const double tail_end = tail_fraction > 0.0 ? 7.0 + 20.0 * tail_length : 7.0, rate = 1.0 / tail_length;
    nodes_.resize(static_cast<std::size_t>((tail_end - first) * nodes_per_sigma) + 1);
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
        const double x = first + static_cast<double>(i) / nodes_per_sigma;
        const double delayed =
            0.5 * rate * std::exp((0.5 * rate - x) * rate) * std::erfc((rate - x) / std::numbers::sqrt2);
        nodes_[i] = (1.0 - tail_fraction) * normal_density(x) + tail_fraction * delayed;
    }
    largest_beyond_.assign(nodes_.begin() + static_cast<std::ptrdiff_t>(-first * nodes_per_sigma), nodes_.end());
    for (std::size_t i = largest_beyond_.size(); i-- > 1;)
        largest_beyond_[i - 1] = std::max(largest_beyond_[i - 1], largest_beyond_[i]);
}

double PeakShape::reach(double density_limit) const {
    const auto below = std::ranges::partition_point(largest_beyond_, [=](double d) { return d >= density_limit; });
    const auto nodes_within = std::max<std::ptrdiff_t>(below - largest_beyond_.begin(), 1);
    return static_cast<double>(nodes_within) / nodes_per_sigma;
}

std::vector<ExpectedPeak> expected_peaks(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                                         const AcquisitionConditions& conditions, const SpectrumTiming& timing) {
    const double interval_ns = conditions.sampling_interval_ns;
    std::vector<ExpectedPeak> all;
    std::size_t room = most_peak_samples;
    for (const IonPeak& peak : peaks) {
        const double share_left = peak.calibrant ? scene.sample.calibrant_factor : 1.0;
        const PeakPlace place =
            peak_place(peak.flight_time_ns, timing.time_factor, conditions.resolution_limit, scene.peak_shape);
        ExpectedPeak& expected = all.emplace_back();
        expected.centre_samples = (place.centre_ns - timing.start_time_ns) / interval_ns;
        expected.arrival_sigma_samples = place.arrival_sigma_ns / interval_ns;
        expected.total_sigma_samples = place.total_sigma_ns / interval_ns;
        expected.ions = conditions.expected_ions(peak.ions * share_left, peak.mz);
        fill_in(expected, shape, conditions.sample_count, room);
        if (expected.samples.empty()) all.pop_back();
    }
    return all;
}

}  // namespace korvane::simulation
