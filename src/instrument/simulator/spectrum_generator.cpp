#include "instrument/simulator/spectrum_generator.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/simulator/portable_random.h"
#include "korvane/embedded_parts.h"

namespace korvane::simulation {

namespace {

/// The ions' signal of one spectrum before digitisation, in 1/64 counts. Blocks of samples without signal cost nothing.
class SignalBuffer {
public:
    static constexpr int fraction_bits = 6;
    static constexpr std::size_t block_samples = 256;

    /// Empties the buffer; a sample never exceeds `full_scale_counts`, which is at most 50,000 times 255.
    void reset(std::size_t sample_count, double full_scale_counts) {
        const std::size_t blocks = (sample_count + block_samples - 1) / block_samples;
        if (samples_.size() != blocks * block_samples) {
            samples_.assign(blocks * block_samples, 0);
            used_.assign(blocks, 0);
        }
        sample_count_ = sample_count;
        limit_ = static_cast<std::int64_t>(full_scale_counts) << fraction_bits;
    }

    std::size_t sample_count() const { return sample_count_; }
    std::size_t block_count() const { return used_.size(); }

    /// Adds 1/64 counts to a sample within the spectrum.
    void add(std::size_t sample, std::int64_t amount) {
        used_[sample / block_samples] = 1;
        samples_[sample] = static_cast<std::int32_t>(std::min(samples_[sample] + amount, limit_));
    }
    /// The samples of a block that holds signal, else null.
    const std::int32_t* block(std::size_t number) const {
        return used_[number] ? &samples_[number * block_samples] : nullptr;
    }
    void clear_block(std::size_t number) {
        if (!used_[number]) return;
        std::fill_n(samples_.begin() + static_cast<std::ptrdiff_t>(number * block_samples), block_samples, 0);
        used_[number] = 0;
    }

private:
    std::vector<std::int32_t> samples_;
    std::vector<std::uint8_t> used_;
    std::size_t sample_count_ = 0;
    std::int64_t limit_ = 0;
};

constexpr int fraction_bits = SignalBuffer::fraction_bits;
constexpr double signal_fraction = 1 << fraction_bits;
constexpr int phases = 64;  // positions of a pulse between two samples
constexpr int height_bits = 10;
constexpr int pulse_bits = 10;  // of a pulse's samples, beyond the signal's own
constexpr double pulse_reach_sigmas = 4.5;
constexpr double most_single_ions = 1e6;  // a peak of more is drawn by counting: its pulses could not be told apart
constexpr double most_pulses = 3e7;       // of a spectrum: some seconds; further peaks are drawn by counting

std::int64_t rounded(double value) {
    return static_cast<std::int64_t>(std::floor(value + 0.5));
}

void add_counted_peak(const ExpectedPeak& peak, const ExpectedSignal& expected, double counts_per_ion,
                      RandomStream& random, SignalBuffer& signal) {
    const double amount_per_ion = counts_per_ion * signal_fraction;
    for (std::size_t i = 0; i < peak.sample_count; ++i) {
        const double mean = expected.ions[peak.first_value + i];
        const std::int64_t count = mean < 10.0
                                       ? random.small_poisson(mean, expected.zero_probabilities[peak.first_value + i])
                                       : random.poisson(mean);
        if (count > 0) signal.add(peak.first_sample + i, rounded(static_cast<double>(count) * amount_per_ion));
    }
}

/// Counting statistics: every sample holds an independent Poisson number of ions.
void add_counted_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random,
                      SignalBuffer& signal) {
    for (const ExpectedPeak& peak : expected.peaks) add_counted_peak(peak, expected, counts_per_ion, random, signal);
}

/// Pulse statistics: every ion arrives at a time of its own and makes one detector pulse of random height.
class PulseStatistics {
public:
    PulseStatistics(const PeakShapeSetup& shape, double height_spread)
        : tail_threshold_(static_cast<std::uint64_t>(shape.tail_fraction * 0x1p32)),
          tail_length_sigmas_(shape.tail_length_sigmas) {
        for (const double height : log_normal_quantiles(height_spread))
            heights_.push_back(rounded(height * (1 << height_bits)));
    }

    void add_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random, SignalBuffer& signal) {
        prepare_pulses(expected.detector_sigma_samples, counts_per_ion);
        double pulses = 0;
        for (const ExpectedPeak& peak : expected.peaks) {
            if (peak.ions > most_single_ions || (pulses += peak.ions) > most_pulses) {
                add_counted_peak(peak, expected, counts_per_ion, random, signal);
                continue;
            }
            const std::int64_t ions = random.poisson(peak.ions);
            for (std::int64_t ion = 0; ion < ions; ++ion) {
                const double position = peak.centre_samples + draw_delay(peak, random.next_bits());
                add_pulse(position, heights_[random.next_bits() >> 48], signal);
            }
        }
    }

private:
    void prepare_pulses(double detector_sigma_samples, double counts_per_ion) {
        if (detector_sigma_samples == prepared_sigma_samples_ && counts_per_ion == prepared_counts_) return;
        prepared_sigma_samples_ = detector_sigma_samples;
        prepared_counts_ = counts_per_ion;
        half_length_ = static_cast<std::int64_t>(std::ceil(pulse_reach_sigmas * detector_sigma_samples));
        pulses_.clear();
        const double scale = counts_per_ion * signal_fraction * (1 << pulse_bits) / detector_sigma_samples;
        for (int phase = 0; phase < phases; ++phase)
            for (std::int64_t i = -half_length_; i <= half_length_; ++i) {
                const double distance = static_cast<double>(i) - (phase + 0.5) / phases;
                pulses_.push_back(rounded(scale * normal_density(distance / detector_sigma_samples)));
            }
    }

    /// Arrival relative to the peak's centre: 16 bits for the Gaussian, 16 for the delay, 32 to choose the delayed
    /// ions.
    double draw_delay(const ExpectedPeak& peak, std::uint64_t bits) const {
        double arrival = peak.arrival_sigma_samples * normal_quantiles()[bits & 0xffff];
        if ((bits >> 32) < tail_threshold_)
            arrival += tail_length_sigmas_ * peak.total_sigma_samples * exponential_quantiles()[(bits >> 16) & 0xffff];
        return arrival;
    }

    void add_pulse(double position_samples, std::int64_t height, SignalBuffer& signal) const {
        const double whole = std::floor(position_samples);
        const auto phase = static_cast<std::int64_t>((position_samples - whole) * phases);
        const std::int64_t length = 2 * half_length_ + 1;
        const std::int64_t* pulse = &pulses_[static_cast<std::size_t>(phase * length)];
        const std::int64_t first = static_cast<std::int64_t>(whole) - half_length_;
        const std::int64_t begin = first < 0 ? -first : 0;
        const std::int64_t end = std::min(length, static_cast<std::int64_t>(signal.sample_count()) - first);
        constexpr int shift = height_bits + pulse_bits;
        for (std::int64_t i = begin; i < end; ++i)
            signal.add(static_cast<std::size_t>(first + i), (pulse[i] * height + (1 << (shift - 1))) >> shift);
    }

    std::uint64_t tail_threshold_ = 0;  // of 32 bits
    double tail_length_sigmas_ = 0;
    std::vector<std::int64_t> heights_;  // quantiles, 1024 is the mean
    std::vector<std::int64_t> pulses_;   // one pulse for each sub-sample phase
    std::int64_t half_length_ = 0;       // samples on either side of the pulse's own
    double prepared_sigma_samples_ = -1, prepared_counts_ = -1;
};

constexpr std::size_t block_samples = SignalBuffer::block_samples;
constexpr std::size_t strip_samples = 32;
constexpr int strip_bits = 5;
constexpr std::int64_t strips = block_samples / strip_samples;
static_assert(std::size_t{1} << strip_bits == strip_samples);

using Strip = std::array<std::int32_t, strip_samples>;

void draw_noise(const std::int32_t* quantiles, RandomStream& random, Strip& values) {
    for (std::size_t i = 0; i < strip_samples; i += 4) {
        const std::uint64_t bits = random.next_bits();
        values[i] = quantiles[bits & 0xffff];
        values[i + 1] = quantiles[(bits >> 16) & 0xffff];
        values[i + 2] = quantiles[(bits >> 32) & 0xffff];
        values[i + 3] = quantiles[bits >> 48];
    }
}

/// Adds to the noise the signal, where there is one, and the baseline, which rises linearly by `rise` over the strip.
void digitize_strip(const Strip& noise, const std::int32_t* signal, std::int32_t start, std::int32_t rise,
                    std::int32_t full_scale, double* counts) {
    for (std::size_t i = 0; i < strip_samples; ++i) {
        const std::int32_t baseline = start + ((rise * static_cast<std::int32_t>(i)) >> strip_bits);
        const std::int32_t value = noise[i] + baseline + (signal ? signal[i] : 0);
        counts[i] = std::clamp((value + (1 << (fraction_bits - 1))) >> fraction_bits, 0, full_scale);
    }
}

std::int32_t to_fixed(double counts) {
    return static_cast<std::int32_t>(std::floor(counts * signal_fraction + 0.5));
}

/// Baseline, electronic noise, summed 8-bit samples that clip, whole counts.
class Digitizer {
public:
    explicit Digitizer(const DetectorSetup& setup) : setup_(setup) {}

    /// Turns the signal into counts and leaves the buffer empty. `drift_phase` is in turns.
    std::vector<double> digitize(SignalBuffer& signal, const AcquisitionConditions& conditions, double drift_phase,
                                 RandomStream random) {
        prepare_noise(conditions.noise_counts);
        const auto full_scale = static_cast<std::int32_t>(conditions.full_scale());
        std::vector<double> counts(signal.block_count() * block_samples);
        std::int32_t baseline = baseline_at_block(0, conditions, drift_phase);
        Strip noise;
        for (std::size_t block = 0; block < signal.block_count(); ++block) {
            const std::int32_t next_baseline = baseline_at_block(block + 1, conditions, drift_phase);
            const std::int64_t rise = next_baseline - baseline;
            const std::int32_t* block_signal = signal.block(block);
            for (std::int64_t strip = 0; strip < strips; ++strip) {
                draw_noise(noise_.data(), random, noise);
                const auto start = static_cast<std::int32_t>(baseline + rise * strip / strips);
                const auto end = static_cast<std::int32_t>(baseline + rise * (strip + 1) / strips);
                const auto offset = static_cast<std::size_t>(strip) * strip_samples;
                digitize_strip(noise, block_signal ? block_signal + offset : nullptr, start, end - start, full_scale,
                               &counts[block * block_samples + offset]);
            }
            signal.clear_block(block);
            baseline = next_baseline;
        }
        counts.resize(signal.sample_count());
        return counts;
    }

private:
    void prepare_noise(double noise_counts) {
        if (noise_counts == prepared_noise_counts_) return;
        const auto& quantiles = normal_quantiles();
        noise_.resize(quantiles.size());
        std::ranges::transform(quantiles, noise_.begin(),
                               [noise_counts](double z) { return to_fixed(z * noise_counts); });
        prepared_noise_counts_ = noise_counts;
    }

    std::int32_t baseline_at_block(std::size_t block, const AcquisitionConditions& conditions,
                                   double drift_phase) const {
        const double share = static_cast<double>(block * block_samples) / static_cast<double>(conditions.sample_count);
        const double wave = portable_sine_of_turns(setup_.baseline_drift_waves * share + drift_phase);
        const double baseline = conditions.baseline_counts * (1.0 + setup_.baseline_drift * wave);
        return to_fixed(std::min(baseline, conditions.full_scale()));
    }

    DetectorSetup setup_;
    std::vector<std::int32_t> noise_;  // quantiles in 1/64 counts
    double prepared_noise_counts_ = -1;
};

// Streams 0 and 1 place the background; each spectrum has four of its own.
enum Purpose : std::uint64_t { ions_purpose, noise_purpose, baseline_purpose, phase_purpose, purpose_count };

constexpr std::uint64_t first_spectrum_stream = 16;

CalibrationObject flight_law(const FlightSetup& flight) {
    return make_square_law_calibration(flight.law.coefficients, VariantArray<std::int32_t>(flight.use_flags));
}

}  // namespace

struct SpectrumGenerator::Stages {
    PulseStatistics pulses;
    Digitizer digitizer;
    SignalBuffer signal;
};

SpectrumGenerator::SpectrumGenerator(const Scene& scene, std::uint64_t seed)
    : scene_(scene),
      seed_(seed),
      population_(build_ion_population(scene, *flight_law(scene.flight), seed)),
      shape_(scene.peak_shape.tail_fraction, scene.peak_shape.tail_length_sigmas),
      stages_(new Stages{{scene.peak_shape, scene.detector.pulse_height_spread}, Digitizer(scene.detector), {}}) {
    const CalibrationObject law = flight_law(scene.flight);
    for (const double mz : scene.detector.dead_masses) dead_peaks_.push_back({mz, law->time_from_mass(mz)});
}

SpectrumGenerator::~SpectrumGenerator() = default;

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
    SignalBuffer& signal = stages_->signal;
    signal.reset(conditions.sample_count, conditions.full_scale());
    if (scene_.detector.statistics == DetectorStatistics::counting)
        add_counted_ions(expected, conditions.counts_per_ion, stream(spectrum_number, ions_purpose), signal);
    else
        stages_->pulses.add_ions(expected, conditions.counts_per_ion, stream(spectrum_number, ions_purpose), signal);
    const double drift_phase = stream(spectrum_number, baseline_purpose).uniform();
    std::vector<double> counts =
        stages_->digitizer.digitize(signal, conditions, drift_phase, stream(spectrum_number, noise_purpose));
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
