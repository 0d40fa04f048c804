#include "instrument/simulator/ion_statistics.h"

#include <cmath>

#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/quantile_tables.h"

namespace korvane::simulation {

namespace {

constexpr double signal_fraction = 1 << SignalBuffer::fraction_bits;
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

}  // namespace

void add_counted_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random,
                      SignalBuffer& signal) {
    for (const ExpectedPeak& peak : expected.peaks) add_counted_peak(peak, expected, counts_per_ion, random, signal);
}

PulseStatistics::PulseStatistics(const PeakShapeSetup& shape, double height_spread)
    : tail_threshold_(static_cast<std::uint64_t>(shape.tail_fraction * 0x1p32)),
      tail_length_sigmas_(shape.tail_length_sigmas) {
    for (const double height : log_normal_quantiles(height_spread))
        heights_.push_back(rounded(height * (1 << height_bits)));
}

void PulseStatistics::prepare_pulses(double detector_sigma_samples, double counts_per_ion) {
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

// Arrival relative to the peak's centre: 16 bits for the Gaussian, 16 for the delay, 32 to choose the delayed ions.
double PulseStatistics::draw_delay(const ExpectedPeak& peak, std::uint64_t bits) const {
    double arrival = peak.arrival_sigma_samples * normal_quantiles()[bits & 0xffff];
    if ((bits >> 32) < tail_threshold_)
        arrival += tail_length_sigmas_ * peak.total_sigma_samples * exponential_quantiles()[(bits >> 16) & 0xffff];
    return arrival;
}

void PulseStatistics::add_pulse(double position_samples, std::int64_t height, SignalBuffer& signal) const {
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

void PulseStatistics::add_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random,
                               SignalBuffer& signal) {
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

}  // namespace korvane::simulation
