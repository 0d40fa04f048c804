#include "instrument/simulator/spectrum_generator.h"

#include <algorithm>
#include <cmath>

#include "instrument/masstime/square_law_calibration.h"

namespace korvane::simulation {

namespace {

// Streams 0 and 1 place the background; each spectrum has four of its own.
enum Purpose : std::uint64_t { ions_purpose, noise_purpose, baseline_purpose, phase_purpose, purpose_count };
constexpr std::uint64_t first_spectrum_stream = 16;

SquareLawCalibration flight_law(const FlightSetup& flight) {
    return SquareLawCalibration(flight.law.coefficients, VariantArray<std::int32_t>(flight.use_flags));
}

}  // namespace

SpectrumGenerator::SpectrumGenerator(const Scene& scene, std::uint64_t seed)
    : scene_(scene),
      seed_(seed),
      population_(build_ion_population(scene, flight_law(scene.flight), seed)),
      shape_(scene.peak_shape.tail_fraction, scene.peak_shape.tail_length_sigmas),
      pulses_(scene.peak_shape, scene.detector.pulse_height_spread),
      digitizer_(scene.detector) {
    const SquareLawCalibration law = flight_law(scene.flight);
    for (const double mz : scene.detector.dead_masses) dead_peaks_.push_back({mz, law.time_from_mass(mz)});
}

RandomStream SpectrumGenerator::stream(std::int64_t spectrum_number, std::uint64_t purpose) const {
    return {seed_, first_spectrum_stream + static_cast<std::uint64_t>(spectrum_number) * purpose_count + purpose};
}

double SpectrumGenerator::start_phase(std::int64_t spectrum_number) const {
    return scene_.instrument.random_phase ? stream(spectrum_number, phase_purpose).uniform() : 0.0;
}

const ExpectedSignal& SpectrumGenerator::expect(const ExpectationKey& key, const AcquisitionConditions& conditions) {
    if (expected_for_ != key) {
        expected_for_.reset();
        expected_ = expected_signal(population_[static_cast<std::size_t>(key.polarity)], scene_, shape_, conditions,
                                    key.timing);
        expected_for_ = key;
    }
    return expected_;
}

std::vector<double> SpectrumGenerator::generate(std::int64_t spectrum_number, const AcquisitionConditions& conditions,
                                                const SpectrumTiming& timing, std::uint64_t revision) {
    const ExpectedSignal& expected = expect({revision, conditions.polarity, timing}, conditions);
    signal_.reset(conditions.sample_count, conditions.full_scale());
    if (scene_.detector.statistics == DetectorStatistics::counting)
        add_counted_ions(expected, conditions.counts_per_ion, stream(spectrum_number, ions_purpose), signal_);
    else
        pulses_.add_ions(expected, conditions.counts_per_ion, stream(spectrum_number, ions_purpose), signal_);
    const double drift_phase = stream(spectrum_number, baseline_purpose).uniform();
    std::vector<double> counts =
        digitizer_.digitize(signal_, conditions, drift_phase, stream(spectrum_number, noise_purpose));
    silence_dead_masses(conditions, timing, counts);
    return counts;
}

void SpectrumGenerator::silence_dead_masses(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                                            std::vector<double>& counts) const {
    for (const IonPeak& peak : dead_peaks_) {
        const double sigma_ns =
            peak_width(peak.flight_time_ns, conditions.resolution_limit, scene_.peak_shape.detector_width_ns)
                .total_sigma_ns;
        const double centre = peak_centre_ns(peak, sigma_ns, scene_.peak_shape, timing.time_factor);
        const double reach = scene_.detector.dead_half_width_sigmas * sigma_ns;
        const auto sample_at = [&](double time_ns) {
            const double sample = std::ceil((time_ns - timing.start_time_ns) / conditions.sampling_interval_ns);
            return static_cast<std::ptrdiff_t>(std::clamp(sample, 0.0, static_cast<double>(counts.size())));
        };
        std::fill(counts.begin() + sample_at(centre - reach), counts.begin() + sample_at(centre + reach), 0.0);
    }
}

}  // namespace korvane::simulation
