#include "instrument/simulator/expected_signal.h"

#include <algorithm>
#include <cmath>

#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/random_stream.h"
#include "korvane/peak_finder.h"

namespace korvane::simulation {

namespace {

constexpr double negligible_ions = 1e-5;  // expected in one sample

class Builder {
public:
    Builder(const Scene& scene, const PeakShape& shape, const AcquisitionConditions& conditions,
            const SpectrumTiming& timing)
        : scene_(scene), shape_(shape), conditions_(conditions), timing_(timing) {
        result_.detector_sigma_samples =
            scene.peak_shape.detector_width_ns / fwhm_per_sigma / conditions.sampling_interval_ns;
    }

    void add(const IonPeak& peak) {
        const double share_left = peak.calibrant ? scene_.sample.calibrant_factor : 1.0;
        const PeakWidth width =
            peak_width(peak.flight_time_ns, conditions_.resolution_limit, scene_.peak_shape.detector_width_ns);
        const double centre =
            peak_centre_ns(peak, width.total_sigma_ns, scene_.peak_shape, timing_.time_factor) - timing_.start_time_ns;
        ExpectedPeak expected;
        expected.centre_samples = centre / conditions_.sampling_interval_ns;
        expected.arrival_sigma_samples = width.arrival_sigma_ns / conditions_.sampling_interval_ns;
        expected.total_sigma_samples = width.total_sigma_ns / conditions_.sampling_interval_ns;
        expected.ions = conditions_.expected_ions(peak.ions * share_left, peak.mz);
        if (place(expected)) result_.peaks.push_back(expected);
    }

    ExpectedSignal take() { return std::move(result_); }

private:
    // Fills in the samples; false where the peak has none.
    bool place(ExpectedPeak& peak) {
        const double per_density = peak.ions / peak.total_sigma_samples;
        if (per_density * 0.4 < negligible_ions) return false;
        const double left = -std::sqrt(2.0 * portable_log(per_density * 0.4 / negligible_ions));
        const double right = shape_.reach(negligible_ions / per_density);
        const double low =
            std::ceil(peak.centre_samples + std::max(left, PeakShape::first()) * peak.total_sigma_samples);
        const double high = std::floor(peak.centre_samples + right * peak.total_sigma_samples);
        const double last_sample = static_cast<double>(conditions_.sample_count) - 1.0;
        if (high < 0.0 || low > last_sample) return false;
        peak.first_sample = static_cast<std::size_t>(std::max(low, 0.0));
        peak.sample_count = static_cast<std::size_t>(std::min(high, last_sample)) + 1 - peak.first_sample;
        peak.first_value = result_.ions.size();
        for (std::size_t i = 0; i < peak.sample_count; ++i) {
            const double x =
                (static_cast<double>(peak.first_sample + i) - peak.centre_samples) / peak.total_sigma_samples;
            const double ions = per_density * shape_.density(x);
            result_.ions.push_back(ions);
            result_.zero_probabilities.push_back(ions < 10.0 ? RandomStream::zero_probability(ions) : 0.0);
        }
        return true;
    }

    const Scene& scene_;
    const PeakShape& shape_;
    const AcquisitionConditions& conditions_;
    const SpectrumTiming& timing_;
    ExpectedSignal result_;
};

}  // namespace

double peak_centre_ns(const IonPeak& peak, double total_sigma_ns, const PeakShapeSetup& setup, double time_factor) {
    return peak.flight_time_ns * time_factor - setup.reference_sigmas * total_sigma_ns;
}

ExpectedSignal expected_signal(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                               const AcquisitionConditions& conditions, const SpectrumTiming& timing) {
    Builder builder(scene, shape, conditions, timing);
    for (const IonPeak& peak : peaks) builder.add(peak);
    return builder.take();
}

}  // namespace korvane::simulation
