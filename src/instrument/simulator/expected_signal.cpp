#include "instrument/simulator/expected_signal.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/random_stream.h"
#include "korvane/error.h"
#include "korvane/peak_finder.h"

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
        raise_runtime_fault(error_number::invalid_call,
                            "the peaks have more than " + std::to_string(most_peak_samples) + " samples");
    for (std::size_t i = 0; i < peak.sample_count; ++i) {
        const double x = (static_cast<double>(peak.first_sample + i) - peak.centre_samples) / peak.total_sigma_samples;
        const double ions = per_density * shape.density(x);
        signal.ions.push_back(ions);
        signal.zero_probabilities.push_back(ions < 10.0 ? RandomStream::zero_probability(ions) : 0.0);
    }
    return true;
}

}  // namespace

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
