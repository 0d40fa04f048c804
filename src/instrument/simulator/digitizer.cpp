#include "instrument/simulator/digitizer.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/quantile_tables.h"

namespace korvane::simulation {

namespace {

constexpr int fraction_bits = SignalBuffer::fraction_bits;
constexpr double fraction = 1 << fraction_bits;
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

// The strip's baseline rises linearly by `rise` over its length.
void add_baseline(Strip& values, std::int32_t start, std::int32_t rise) {
    for (std::size_t i = 0; i < strip_samples; ++i)
        values[i] += start + ((rise * static_cast<std::int32_t>(i)) >> strip_bits);
}

void add_signal(Strip& values, const std::int32_t* signal) {
    for (std::size_t i = 0; i < strip_samples; ++i) values[i] += signal[i];
}

void round_and_clip(const Strip& values, std::int32_t full_scale, double* counts) {
    for (std::size_t i = 0; i < strip_samples; ++i) {
        const std::int32_t rounded = (values[i] + (1 << (fraction_bits - 1))) >> fraction_bits;
        counts[i] = std::min(std::max(rounded, 0), full_scale);
    }
}

std::int32_t to_fixed(double counts) {
    return static_cast<std::int32_t>(std::floor(counts * fraction + 0.5));
}

}  // namespace

void Digitizer::prepare_noise(double noise_counts) {
    if (noise_counts == prepared_noise_counts_) return;
    const auto& quantiles = normal_quantiles();
    noise_.resize(quantiles.size());
    std::ranges::transform(quantiles, noise_.begin(), [noise_counts](double z) { return to_fixed(z * noise_counts); });
    prepared_noise_counts_ = noise_counts;
}

std::int32_t Digitizer::baseline_at_block(std::size_t block, const AcquisitionConditions& conditions,
                                          double drift_phase) const {
    const double share = static_cast<double>(block * block_samples) / static_cast<double>(conditions.sample_count);
    const double wave = portable_sine_of_turns(setup_.baseline_drift_waves * share + drift_phase);
    const double baseline = conditions.baseline_counts * (1.0 + setup_.baseline_drift * wave);
    return to_fixed(std::min(baseline, conditions.full_scale()));
}

std::vector<double> Digitizer::digitize(SignalBuffer& signal, const AcquisitionConditions& conditions,
                                        double drift_phase, RandomStream random) {
    prepare_noise(conditions.noise_counts);
    const auto full_scale = static_cast<std::int32_t>(conditions.full_scale());
    std::vector<double> counts(signal.block_count() * block_samples);
    std::int32_t baseline = baseline_at_block(0, conditions, drift_phase);
    Strip values;
    for (std::size_t block = 0; block < signal.block_count(); ++block) {
        const std::int32_t next_baseline = baseline_at_block(block + 1, conditions, drift_phase);
        const std::int64_t rise = next_baseline - baseline;
        const std::int32_t* block_signal = signal.block(block);
        for (std::int64_t strip = 0; strip < strips; ++strip) {
            draw_noise(noise_.data(), random, values);
            const auto start = static_cast<std::int32_t>(baseline + rise * strip / strips);
            const auto end = static_cast<std::int32_t>(baseline + rise * (strip + 1) / strips);
            add_baseline(values, start, end - start);
            const auto offset = static_cast<std::size_t>(strip) * strip_samples;
            if (block_signal) add_signal(values, block_signal + offset);
            round_and_clip(values, full_scale, &counts[block * block_samples + offset]);
        }
        signal.clear_block(block);
        baseline = next_baseline;
    }
    counts.resize(signal.sample_count());
    return counts;
}

}  // namespace korvane::simulation
