#include "instrument/peakfinder/background.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace korvane {

using namespace method;

namespace {

using IntegerLanes = std::int32_t __attribute__((vector_size(16)));
using FloatLanes = float __attribute__((vector_size(16)));

/// Count, sum and sum of squares of the distances from a centre of the samples that lie within reach of it.
struct ClippedMoments {
    double count = 0;
    double sum = 0;
    double square_sum = 0;
};

/// Runs at memory speed.
void add_clipped(std::span<const std::int32_t> counts, std::int32_t centre, std::int32_t reach,
                 ClippedMoments& moments) {
    constexpr std::size_t lanes = 4;
    IntegerLanes within{};
    FloatLanes sum{};
    FloatLanes square_sum{};
    std::size_t index = 0;
    for (; index + lanes <= counts.size(); index += lanes) {
        std::uint32_t __attribute__((vector_size(16))) samples;
        std::memcpy(&samples, &counts[index], sizeof samples);
        // Wrapping subtraction is harmless: what wraps is either clipped or a value no detector gives.
        const auto distance = (IntegerLanes)(samples - static_cast<std::uint32_t>(centre));
        const IntegerLanes near = (distance <= reach) & (distance >= -reach);
        const FloatLanes real = __builtin_convertvector(distance & near, FloatLanes);
        within -= near;
        sum += real;
        square_sum += real * real;
    }
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        moments.count += within[lane];
        moments.sum += sum[lane];
        moments.square_sum += square_sum[lane];
    }
    for (; index < counts.size(); ++index) {
        const double distance = static_cast<double>(counts[index]) - centre;
        if (std::abs(distance) > reach) continue;
        moments.count += 1;
        moments.sum += distance;
        moments.square_sum += distance * distance;
    }
}

/// Middle and scaled width of the shortest interval that holds half of a sparse selection of the samples.
BackgroundLevel densest_half(std::span<const std::int32_t> samples) {
    std::array<std::int32_t, guess_samples> selected;
    const Index number = std::min<Index>(selected.size(), samples.size());
    for (Index i = 0; i < number; ++i) selected[i] = samples[i * samples.size() / number];
    std::sort(selected.begin(), selected.begin() + number);
    const Index half = number / 2;
    auto width_at = [&](Index i) { return static_cast<double>(selected[i + half]) - selected[i]; };
    Index best = 0;
    for (Index i = 0; i + half < number; ++i)
        if (width_at(i) < width_at(best)) best = i;
    const double noise = std::max(least_noise_counts, width_at(best) / half_interval_width);
    return {static_cast<double>(selected[best + half / 2]), noise};
}

/// One step of clipping around a level; false when too few samples lie there to be the baseline.
bool clip(std::span<const std::int32_t> samples, BackgroundLevel& level) {
    const auto centre = static_cast<std::int32_t>(std::floor(level.baseline + 0.5));
    const double reach = std::min(std::ceil(clip_deviations * level.noise), largest_clip_counts);
    const std::size_t judged = std::min<std::size_t>(samples.size(), block_stretches * stretch_samples);
    const std::size_t stretches = judged < samples.size() ? block_stretches : 1;
    ClippedMoments moments;
    for (std::size_t i = 0; i < stretches; ++i)
        add_clipped(samples.subspan(i * samples.size() / stretches, judged / stretches), centre,
                    static_cast<std::int32_t>(reach), moments);
    if (moments.count < least_baseline_part * static_cast<double>(judged)) return false;
    const double mean = moments.sum / moments.count;
    const double variance = std::max(0.0, moments.square_sum / moments.count - mean * mean);
    level = {centre + mean, std::max(least_noise_counts, std::sqrt(variance) / clipped_deviation)};
    return true;
}

bool settle(std::span<const std::int32_t> samples, BackgroundLevel& level) {
    for (int step = 0; step < most_clip_steps; ++step) {
        const BackgroundLevel before = level;
        if (!clip(samples, level)) return false;
        if (std::abs(level.baseline - before.baseline) < settled_baseline_deviations * level.noise &&
            std::abs(level.noise - before.noise) < settled_noise_part * level.noise)
            break;
    }
    return true;
}

/// Gives blocks without a visible baseline the level of the nearest block that has one.
void fill_hidden(std::vector<BackgroundBlock>& blocks, const std::vector<Index>& visible) {
    for (Index i = 0; i < std::ssize(blocks) && !visible.empty(); ++i)
        blocks[i].level =
            blocks[*std::ranges::min_element(visible, {}, [&](Index j) { return std::abs(j - i); })].level;
}

}  // namespace

Background::Background(std::span<const std::int32_t> counts, Index first, Index end) : counts_(counts) {
    const Index size = end - first;
    const Index short_blocks = std::clamp<Index>(size / least_block_samples, 1, least_blocks);
    const Index number = std::max(short_blocks, size / block_samples);
    std::vector<Index> visible;
    BackgroundLevel level;
    bool followed = false;
    for (Index i = 0; i < number; ++i) {
        BackgroundBlock block{first + size * i / number, first + size * (i + 1) / number, {}};
        const auto samples = counts.subspan(block.first, block.end - block.first);
        followed = followed && settle(samples, level);
        if (!followed) level = densest_half(samples);
        followed = followed || settle(samples, level);
        if (followed) visible.push_back(i);
        block.level = level;
        blocks_.push_back(block);
    }
    if (std::ssize(visible) < number) fill_hidden(blocks_, visible);
    if (number > 1)
        blocks_per_sample_ = static_cast<double>(number - 1) / (blocks_.back().centre() - blocks_.front().centre());
}

const BackgroundBlock* Background::left_of(double sample) const {
    const double place = std::max(0.0, (sample - blocks_.front().centre()) * blocks_per_sample_);
    return &blocks_[std::min(static_cast<std::size_t>(place), blocks_.size() - 2)];
}

BackgroundLevel Background::at(double sample) const {
    if (blocks_.size() == 1) return blocks_.front().level;
    const BackgroundBlock& left = *left_of(sample);
    const BackgroundBlock& right = *(&left + 1);
    const double part = std::clamp((sample - left.centre()) / (right.centre() - left.centre()), 0.0, 1.0);
    return {left.level.baseline + part * (right.level.baseline - left.level.baseline),
            left.level.noise + part * (right.level.noise - left.level.noise)};
}

void Background::subtract(Index first, std::span<double> above) const {
    const Index end = first + std::ssize(above);
    for (Index from = first; from < end;) {
        // Up to the next centre of a block the baseline is a straight line.
        Index to = end;
        if (blocks_.size() > 1) {
            const BackgroundBlock* left = left_of(from);
            const double corner = from < left->centre() ? left->centre() : (left + 1)->centre();
            if (corner > from) to = std::min(to, static_cast<Index>(std::ceil(corner)));
        }
        const double start = at(from).baseline;
        const double slope = (at(to).baseline - start) / static_cast<double>(to - from);
        for (Index i = from; i < to; ++i)
            above[i - first] = counts_[i] - (start + slope * static_cast<double>(i - from));
        from = to;
    }
}

double Background::mean_baseline(Index first, Index end) const {
    double sum = 0;
    double weight_sum = 0;
    for (const auto& block : blocks_) {
        const auto weight = static_cast<double>(std::min(end, block.end) - std::max(first, block.first));
        if (weight <= 0) continue;
        sum += weight * block.level.baseline;
        weight_sum += weight;
    }
    return weight_sum > 0 ? sum / weight_sum : blocks_.front().level.baseline;
}

}  // namespace korvane
