#include "instrument/simulator/spectrum_generator.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "instrument/simulator/random_stream.h"
#include "korvane/embedded_parts.h"

namespace korvane::simulation {

namespace {

constexpr int fraction_bits = 6;  // of a count, in the signal before it is digitised
constexpr double signal_fraction = 1 << fraction_bits;
constexpr std::size_t block_samples = 256;  // over which the baseline is a straight line
constexpr std::size_t strip_samples = 32;   // for which noise is drawn at once
constexpr int strip_bits = 5;
constexpr std::int64_t strips = block_samples / strip_samples;
static_assert(std::size_t{1} << strip_bits == strip_samples);

constexpr std::int64_t phases = 64;  // positions of a pulse between two samples
constexpr int height_bits = 10;
constexpr int pulse_bits = 10;  // of a pulse's samples, beyond the signal's own
constexpr double pulse_reach_sigmas = 4.5;
constexpr double most_single_ions = 1e6;  // a peak of more is drawn by counting: its pulses could not be told apart
constexpr double most_pulses = 3e7;       // of a spectrum: some seconds; further peaks are drawn by counting

// Streams 0 and 1 place the background; each spectrum has four of its own.
enum Purpose : std::uint64_t { ions_purpose, noise_purpose, baseline_purpose, phase_purpose, purpose_count };

constexpr std::uint64_t first_spectrum_stream = 16;

std::int64_t rounded(double value) {
    return static_cast<std::int64_t>(std::floor(value + 0.5));
}

std::int32_t to_fixed(double counts) {
    return static_cast<std::int32_t>(rounded(counts * signal_fraction));
}

CalibrationObject flight_law(const FlightSetup& flight) {
    return make_square_law_calibration(flight.law.coefficients, VariantArray<std::int32_t>(flight.use_flags));
}

}  // namespace

SpectrumGenerator::SpectrumGenerator(const Scene& scene, std::uint64_t seed)
    : scene_(scene),
      seed_(seed),
      population_(build_ion_population(scene, *flight_law(scene.flight), seed)),
      shape_(scene.peak_shape.tail_fraction, scene.peak_shape.tail_length_sigmas) {
    const CalibrationObject law = flight_law(scene.flight);
    for (const double mz : scene.detector.dead_masses) dead_peaks_.push_back({mz, law->time_from_mass(mz)});
    for (const double height : log_normal_quantiles(scene.detector.pulse_height_spread))
        heights_.push_back(rounded(height * (1 << height_bits)));
}

RandomStream SpectrumGenerator::stream(std::int64_t spectrum_number, std::uint64_t purpose) const {
    return {seed_, first_spectrum_stream + static_cast<std::uint64_t>(spectrum_number) * purpose_count + purpose};
}

double SpectrumGenerator::start_phase(std::int64_t spectrum_number) const {
    return scene_.instrument.random_phase ? stream(spectrum_number, phase_purpose).uniform() : 0.0;
}

std::vector<double> SpectrumGenerator::generate(std::int64_t spectrum_number, const AcquisitionConditions& conditions,
                                                const SpectrumTiming& timing) {
    prepare(conditions);
    const std::size_t blocks = (conditions.sample_count + block_samples - 1) / block_samples;
    signal_.assign(blocks * block_samples, 0);
    draw_ions(conditions, timing, stream(spectrum_number, ions_purpose));
    const double drift_phase = stream(spectrum_number, baseline_purpose).uniform();
    std::vector<double> counts = digitized(conditions, drift_phase, stream(spectrum_number, noise_purpose));
    silence_dead_masses(conditions, timing, counts);
    return counts;
}

void SpectrumGenerator::prepare(const AcquisitionConditions& conditions) {
    if (std::exchange(noise_counts_, conditions.noise_counts) != conditions.noise_counts) {
        noise_.clear();
        for (const double z : normal_quantiles()) noise_.push_back(to_fixed(z * noise_counts_));
    }
    const double sigma = scene_.peak_shape.detector_width_ns / fwhm_per_sigma / conditions.sampling_interval_ns;
    half_length_ = static_cast<std::int64_t>(std::ceil(pulse_reach_sigmas * sigma));
    pulses_.clear();
    const double scale = conditions.counts_per_ion * signal_fraction * (1 << pulse_bits) / sigma;
    for (int phase = 0; phase < phases; ++phase)
        for (std::int64_t i = -half_length_; i <= half_length_; ++i) {
            const double distance = static_cast<double>(i) - (phase + 0.5) / phases;
            pulses_.push_back(rounded(scale * normal_density(distance / sigma)));
        }
}

void SpectrumGenerator::draw_ions(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                                  RandomStream random) {
    const auto limit = static_cast<std::int64_t>(conditions.full_scale()) << fraction_bits;
    const auto add = [&](std::size_t sample, std::int64_t amount) {
        signal_[sample] = static_cast<std::int32_t>(std::min(signal_[sample] + amount, limit));
    };
    const IonPeaks& ions = population_[static_cast<std::size_t>(conditions.polarity)];
    double pulses = 0;
    for (const ExpectedPeak& peak : expected_peaks(ions, scene_, shape_, conditions, timing)) {
        const bool by_pulses = scene_.detector.statistics == DetectorStatistics::pulse &&
                               peak.ions <= most_single_ions && (pulses += peak.ions) <= most_pulses;
        by_pulses ? draw_pulses(peak, conditions.sample_count, random, add)
                  : draw_counts(peak, conditions.counts_per_ion * signal_fraction, random, add);
    }
}

/// Counting statistics: every sample holds an independent Poisson number of ions.
template <class Add>
void SpectrumGenerator::draw_counts(const ExpectedPeak& peak, double amount_per_ion, RandomStream& random,
                                    const Add& add) const {
    for (std::size_t i = 0; i < peak.samples.size(); ++i)
        if (const std::int64_t count = random.poisson(peak.samples[i]); count > 0)
            add(peak.first_sample + i, rounded(static_cast<double>(count) * amount_per_ion));
}

/// Pulse statistics: every ion arrives at a time of its own and makes one detector pulse of random height.
template <class Add>
void SpectrumGenerator::draw_pulses(const ExpectedPeak& peak, std::size_t sample_count, RandomStream& random,
                                    const Add& add) const {
    constexpr int shift = height_bits + pulse_bits;
    const auto tail_threshold = static_cast<std::uint64_t>(scene_.peak_shape.tail_fraction * 0x1p32);
    const double tail_samples = scene_.peak_shape.tail_length_sigmas * peak.total_sigma_samples;
    const std::int64_t length = 2 * half_length_ + 1, ions = random.poisson(peak.ions);
    for (std::int64_t ion = 0; ion < ions; ++ion) {
        // 16 bits for the Gaussian, 16 for the delay, 32 to choose the delayed ions.
        const std::uint64_t bits = random.next_bits();
        double arrival = peak.arrival_sigma_samples * normal_quantiles()[bits & 0xffff];
        if ((bits >> 32) < tail_threshold) arrival += tail_samples * exponential_quantiles()[(bits >> 16) & 0xffff];
        const double position = peak.centre_samples + arrival, whole = std::floor(position);
        const std::int64_t height = heights_[random.next_bits() >> 48];
        const std::int64_t* pulse = &pulses_[static_cast<std::size_t>((position - whole) * phases) * length];
        const std::int64_t first = static_cast<std::int64_t>(whole) - half_length_;
        const std::int64_t end = std::min(length, static_cast<std::int64_t>(sample_count) - first);
        for (std::int64_t i = std::max<std::int64_t>(0, -first); i < end; ++i)
            add(static_cast<std::size_t>(first + i), (pulse[i] * height + (1 << (shift - 1))) >> shift);
    }
}

/// Baseline, electronic noise, summed 8-bit samples that clip, whole counts. `drift_phase` is in turns.
std::vector<double> SpectrumGenerator::digitized(const AcquisitionConditions& conditions, double drift_phase,
                                                 RandomStream random) const {
    const auto full_scale = static_cast<std::int32_t>(conditions.full_scale());
    const auto baseline_at = [&](std::size_t sample) {
        const double share = static_cast<double>(sample) / static_cast<double>(conditions.sample_count);
        const double wave =
            std::sin(2.0 * std::numbers::pi * (scene_.detector.baseline_drift_waves * share + drift_phase));
        const double baseline = conditions.baseline_counts * (1.0 + scene_.detector.baseline_drift * wave);
        return to_fixed(std::min(baseline, conditions.full_scale()));
    };
    std::vector<double> counts(signal_.size());
    std::int32_t baseline = baseline_at(0);
    std::array<std::int32_t, strip_samples> noise;
    for (std::size_t block = 0; block < counts.size(); block += block_samples) {
        const std::int32_t next_baseline = baseline_at(block + block_samples);
        const std::int64_t rise = next_baseline - baseline;
        for (std::int64_t strip = 0; strip < strips; ++strip) {
            for (std::size_t i = 0; i < strip_samples; i += 4) {
                const std::uint64_t bits = random.next_bits();
                for (std::size_t part = 0; part < 4; ++part) noise[i + part] = noise_[(bits >> (16 * part)) & 0xffff];
            }
            const auto start = static_cast<std::int32_t>(baseline + rise * strip / strips);
            const auto end = static_cast<std::int32_t>(baseline + rise * (strip + 1) / strips);
            const std::size_t first = block + static_cast<std::size_t>(strip) * strip_samples;
            for (std::size_t i = 0; i < strip_samples; ++i) {
                const std::int32_t drift = ((end - start) * static_cast<std::int32_t>(i)) >> strip_bits;
                const std::int32_t value = noise[i] + start + drift + signal_[first + i];
                counts[first + i] = std::clamp((value + (1 << (fraction_bits - 1))) >> fraction_bits, 0, full_scale);
            }
        }
        baseline = next_baseline;
    }
    counts.resize(conditions.sample_count);
    return counts;
}

void SpectrumGenerator::silence_dead_masses(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                                            std::vector<double>& counts) const {
    for (const IonPeak& peak : dead_peaks_) {
        const PeakPlace place =
            peak_place(peak.flight_time_ns, timing.time_factor, conditions.resolution_limit, scene_.peak_shape);
        const double reach_ns = scene_.detector.dead_half_width_sigmas * place.total_sigma_ns;
        const auto sample_at = [&](double time_ns) {
            const double sample = std::ceil((time_ns - timing.start_time_ns) / conditions.sampling_interval_ns);
            return static_cast<std::ptrdiff_t>(std::clamp(sample, 0.0, static_cast<double>(counts.size())));
        };
        std::fill(counts.begin() + sample_at(place.centre_ns - reach_ns),
                  counts.begin() + sample_at(place.centre_ns + reach_ns), 0.0);
    }
}

}  // namespace korvane::simulation
