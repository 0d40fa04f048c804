// Generates the counts of one spectrum: draws its ions, adds up their signal and digitises it.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/portable_random.h"

namespace korvane::simulation {

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

/// Counting statistics: every sample holds an independent Poisson number of ions.
void add_counted_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random, SignalBuffer& signal);

/// Pulse statistics: every ion arrives at a time of its own and makes one detector pulse of random height.
class PulseStatistics {
public:
    PulseStatistics(const PeakShapeSetup& shape, double height_spread);

    void add_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random, SignalBuffer& signal);

private:
    void prepare_pulses(double detector_sigma_samples, double counts_per_ion);
    double draw_delay(const ExpectedPeak& peak, std::uint64_t bits) const;
    void add_pulse(double position_samples, std::int64_t height, SignalBuffer& signal) const;

    std::uint64_t tail_threshold_ = 0;  // of 32 bits
    double tail_length_sigmas_ = 0;
    std::vector<std::int64_t> heights_;  // quantiles, 1024 is the mean
    std::vector<std::int64_t> pulses_;   // one pulse for each sub-sample phase
    std::int64_t half_length_ = 0;       // samples on either side of the pulse's own
    double prepared_sigma_samples_ = -1, prepared_counts_ = -1;
};

/// Baseline, electronic noise, summed 8-bit samples that clip, whole counts.
class Digitizer {
public:
    explicit Digitizer(const DetectorSetup& setup) : setup_(setup) {}

    /// Turns the signal into counts and leaves the buffer empty. `drift_phase` is in turns.
    std::vector<double> digitize(SignalBuffer& signal, const AcquisitionConditions& conditions, double drift_phase,
                                 RandomStream random);

private:
    void prepare_noise(double noise_counts);
    std::int32_t baseline_at_block(std::size_t block, const AcquisitionConditions& conditions,
                                   double drift_phase) const;

    DetectorSetup setup_;
    std::vector<std::int32_t> noise_;  // quantiles in 1/64 counts
    double prepared_noise_counts_ = -1;
};

class SpectrumGenerator {
public:
    /// Builds the ions; errors as `build_ion_population`. `scene` must outlive the generator.
    SpectrumGenerator(const Scene& scene, std::uint64_t seed);

    /// Part of a sample by which the spectrum of this number starts later: 0 unless the scene asks for a random phase.
    double start_phase(std::int64_t spectrum_number) const;

    /// Counts of every sample of the spectrum of this number. `revision` changes whenever the conditions may have
    /// changed. The same seed, number, conditions and timing give the same counts.
    std::vector<double> generate(std::int64_t spectrum_number, const AcquisitionConditions& conditions,
                                 const SpectrumTiming& timing, std::uint64_t revision);

    /// The peaks that it draws from, by polarity.
    const std::array<IonPeaks, 2>& population() const { return population_; }

private:
    struct ExpectationKey {
        std::uint64_t revision;
        std::int32_t polarity;
        SpectrumTiming timing;
        friend bool operator==(const ExpectationKey&, const ExpectationKey&) = default;
    };

    RandomStream stream(std::int64_t spectrum_number, std::uint64_t purpose) const;
    const ExpectedSignal& expect(const ExpectationKey& key, const AcquisitionConditions& conditions);
    void silence_dead_masses(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                             std::vector<double>& counts) const;

    const Scene& scene_;
    std::uint64_t seed_;
    std::array<IonPeaks, 2> population_;
    std::vector<IonPeak> dead_peaks_;
    PeakShape shape_;
    PulseStatistics pulses_;
    Digitizer digitizer_;
    SignalBuffer signal_;
    std::optional<ExpectationKey> expected_for_;
    ExpectedSignal expected_;
};

}  // namespace korvane::simulation
