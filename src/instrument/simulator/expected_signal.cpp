#include "instrument/simulator/expected_signal.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

#include "instrument/simulator/portable_random.h"
#include "korvane/error.h"
#include "korvane/peak_finder.h"
#include "platform/text.h"

namespace korvane::simulation {

namespace {

constexpr double negligible_ions = 1e-5;             // expected in one sample
constexpr std::size_t most_peak_samples = 20000000;  // of all peaks together: 320 MB

/// Fills in the peak's samples; false where it has none.
bool place(ExpectedPeak& peak, const PeakShape& shape, std::size_t sample_count, ExpectedSignal& signal) {
    const double per_density = peak.ions / peak.total_sigma_samples;
    if (per_density * 0.4 < negligible_ions) return false;
    const double left = -std::sqrt(2.0 * portable_log(per_density * 0.4 / negligible_ions));
    const double right = shape.reach(negligible_ions / per_density);
    const double low = std::ceil(peak.centre_samples + std::max(left, PeakShape::first()) * peak.total_sigma_samples);
    const double high = std::floor(peak.centre_samples + right * peak.total_sigma_samples);
    const double last_sample = static_cast<double>(sample_count) - 1.0;
    if (high < 0.0 || low > last_sample) return false;
    peak.first_sample = static_cast<std::size_t>(std::max(low, 0.0));
    peak.sample_count = static_cast<std::size_t>(std::min(high, last_sample)) + 1 - peak.first_sample;
    peak.first_value = signal.ions.size();
    if (peak.first_value + peak.sample_count > most_peak_samples)
        raise_runtime_fault(error_number::invalid_call, "the peaks have more than ", most_peak_samples, " samples");
    for (std::size_t i = 0; i < peak.sample_count; ++i) {
        const double x = (static_cast<double>(peak.first_sample + i) - peak.centre_samples) / peak.total_sigma_samples;
        const double ions = per_density * shape.density(x);
        signal.ions.push_back(ions);
        signal.zero_probabilities.push_back(ions < 10.0 ? RandomStream::zero_probability(ions) : 0.0);
    }
    return true;
}

}  // namespace

PeakWidth peak_width(double flight_time_ns, double resolution_limit, double detector_width_ns) {
    const double arrival_ns = flight_time_ns / (2.0 * resolution_limit) / fwhm_per_sigma;
    const double detector_ns = detector_width_ns / fwhm_per_sigma;
    return {arrival_ns, std::sqrt(arrival_ns * arrival_ns + detector_ns * detector_ns)};
}

// The delayed part g, a Gaussian convolved with exp(-x / length) / length, solves length g' = N - g; one step of the
// fourth-order Runge-Kutta rule a node.
PeakShape::PeakShape(double tail_fraction, double tail_length) {
    const double tail_end = tail_fraction > 0.0 ? 7.0 + 20.0 * tail_length : 7.0;
    const auto count = static_cast<std::size_t>((tail_end - first()) * nodes_per_sigma) + 1;
    const double step = 1.0 / nodes_per_sigma;
    nodes_.resize(count);
    double delayed = 0.0;
    double undelayed = normal_density(first());
    for (std::size_t i = 0; i < count; ++i) {
        nodes_[i] = (1.0 - tail_fraction) * undelayed + tail_fraction * delayed;
        const double x = first() + static_cast<double>(i) * step;
        const double middle = normal_density(x + 0.5 * step);
        const double end = normal_density(x + step);
        const double k1 = (undelayed - delayed) / tail_length;
        const double k2 = (middle - (delayed + 0.5 * step * k1)) / tail_length;
        const double k3 = (middle - (delayed + 0.5 * step * k2)) / tail_length;
        const double k4 = (end - (delayed + step * k3)) / tail_length;
        delayed += step / 6.0 * (k1 + 2.0 * k2 + 2.0 * k3 + k4);
        undelayed = end;
    }
    largest_beyond_.assign(nodes_.begin() + static_cast<std::ptrdiff_t>(-first() * nodes_per_sigma), nodes_.end());
    for (std::size_t i = largest_beyond_.size(); i-- > 1;)
        largest_beyond_[i - 1] = std::max(largest_beyond_[i - 1], largest_beyond_[i]);
}

double PeakShape::reach(double density_limit) const {
    const auto below = std::ranges::partition_point(largest_beyond_, [=](double d) { return d >= density_limit; });
    const auto nodes_within = std::max<std::ptrdiff_t>(below - largest_beyond_.begin(), 1);
    return static_cast<double>(nodes_within) / nodes_per_sigma;
}

double peak_centre_ns(const IonPeak& peak, double total_sigma_ns, const PeakShapeSetup& setup, double time_factor) {
    return peak.flight_time_ns * time_factor - setup.reference_sigmas * total_sigma_ns;
}

ExpectedSignal expected_signal(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                               const AcquisitionConditions& conditions, const SpectrumTiming& timing) {
    const double interval_ns = conditions.sampling_interval_ns, detector_ns = scene.peak_shape.detector_width_ns;
    ExpectedSignal signal;
    signal.detector_sigma_samples = detector_ns / fwhm_per_sigma / interval_ns;
    for (const IonPeak& peak : peaks) {
        const double share_left = peak.calibrant ? scene.sample.calibrant_factor : 1.0;
        const PeakWidth width = peak_width(peak.flight_time_ns, conditions.resolution_limit, detector_ns);
        const double centre =
            peak_centre_ns(peak, width.total_sigma_ns, scene.peak_shape, timing.time_factor) - timing.start_time_ns;
        ExpectedPeak expected;
        expected.centre_samples = centre / interval_ns;
        expected.arrival_sigma_samples = width.arrival_sigma_ns / interval_ns;
        expected.total_sigma_samples = width.total_sigma_ns / interval_ns;
        expected.ions = conditions.expected_ions(peak.ions * share_left, peak.mz);
        if (place(expected, shape, conditions.sample_count, signal)) signal.peaks.push_back(expected);
    }
    return signal;
}

}  // namespace korvane::simulation
