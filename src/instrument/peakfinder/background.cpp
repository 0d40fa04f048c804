#include "instrument/peakfinder/background.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "instrument/peakfinder/sample_scan.h"

namespace korvane {

namespace {

constexpr std::size_t block_samples = 4096;
constexpr std::size_t least_block_samples = 256;
constexpr std::size_t least_blocks = 4;
// Long blocks are judged by these stretches of them: a mean of 1024 samples is good to a thirtieth of the noise.
constexpr std::size_t stretches = 4;
constexpr std::size_t stretch_samples = 256;
constexpr double clip_deviations = 3;
constexpr double clipped_deviation = 0.98658;  // of a normal distribution of deviation 1
constexpr double densest_half_width = 1.349;   // of the same

/// Middle and scaled width of the shortest interval that holds half of a sparse selection of the samples.
BackgroundLevel densest_half(std::span<const std::int32_t> samples) {
    std::array<std::int32_t, 64> selected;
    const std::size_t number = std::min(selected.size(), samples.size());
    for (std::size_t i = 0; i < number; ++i) selected[i] = samples[i * samples.size() / number];
    std::sort(selected.begin(), selected.begin() + static_cast<std::ptrdiff_t>(number));
    const std::size_t half = number / 2;
    auto width_at = [&](std::size_t i) { return static_cast<double>(selected[i + half]) - selected[i]; };
    std::size_t best = 0;
    for (std::size_t i = 0; i + half < number; ++i)
        if (width_at(i) < width_at(best)) best = i;
    const auto middle = static_cast<double>(selected[best + half / 2]);
    return {middle, std::max(Background::least_noise, width_at(best) / densest_half_width)};
}

ClippedMoments block_moments(std::span<const std::int32_t> samples, std::int32_t centre, std::int32_t reach) {
    if (samples.size() <= stretches * stretch_samples) return clipped_moments(samples, centre, reach);
    ClippedMoments total;
    for (std::size_t i = 0; i < stretches; ++i) {
        const auto stretch = samples.subspan(i * samples.size() / stretches, stretch_samples);
        const ClippedMoments moments = clipped_moments(stretch, centre, reach);
        total.count += moments.count;
        total.sum += moments.sum;
        total.square_sum += moments.square_sum;
    }
    return total;
}

/// One step of clipping around a level; false when too few samples lie there to be the baseline.
bool refine(std::span<const std::int32_t> samples, BackgroundLevel& level) {
    const auto centre = static_cast<std::int32_t>(std::floor(level.baseline + 0.5));
    const double reach = std::min(std::ceil(clip_deviations * level.noise), 1e8);
    const ClippedMoments moments = block_moments(samples, centre, static_cast<std::int32_t>(reach));
    const auto judged = static_cast<double>(std::min(samples.size(), stretches * stretch_samples));
    if (moments.count < 0.3 * judged) return false;
    const double mean = moments.sum / moments.count;
    const double variance = std::max(0.0, moments.square_sum / moments.count - mean * mean);
    level.baseline = centre + mean;
    level.noise = std::max(Background::least_noise, std::sqrt(variance) / clipped_deviation);
    return true;
}

bool settle(std::span<const std::int32_t> samples, BackgroundLevel& level) {
    constexpr int most_steps = 10;
    for (int step = 0; step < most_steps; ++step) {
        const BackgroundLevel before = level;
        if (!refine(samples, level)) return false;
        if (std::abs(level.baseline - before.baseline) < 0.3 * level.noise &&
            std::abs(level.noise - before.noise) < 0.15 * level.noise)
            return true;
    }
    return true;
}

/// Gives blocks without a visible baseline the level of the nearest block that has one.
void fill_blind(std::vector<BackgroundBlock>& blocks, const std::vector<bool>& seen) {
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        for (std::size_t distance = 1; !seen[i] && distance < blocks.size(); ++distance) {
            const bool left = i >= distance && seen[i - distance];
            const bool right = i + distance < blocks.size() && seen[i + distance];
            if (!left && !right) continue;
            blocks[i].level = blocks[left ? i - distance : i + distance].level;
            break;
        }
    }
}

}  // namespace

Background::Background(std::span<const std::int32_t> counts, std::size_t first, std::size_t end) {
    const std::size_t size = end - first;
    const std::size_t short_blocks = std::clamp<std::size_t>(size / least_block_samples, 1, least_blocks);
    blocks_.resize(std::max(short_blocks, size / block_samples));
    std::vector<bool> seen(blocks_.size());
    BackgroundLevel level;
    bool followed = false;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        BackgroundBlock& block = blocks_[i];
        block.first = first + size * i / blocks_.size();
        block.end = first + size * (i + 1) / blocks_.size();
        const auto samples = counts.subspan(block.first, block.end - block.first);
        followed = followed && settle(samples, level);
        if (!followed) level = densest_half(samples);
        followed = followed || settle(samples, level);
        seen[i] = followed;
        block.level = level;
    }
    fill_blind(blocks_, seen);
    first_centre_ = blocks_.front().centre();
    if (blocks_.size() > 1)
        blocks_per_sample_ = static_cast<double>(blocks_.size() - 1) / (blocks_.back().centre() - first_centre_);
}

std::size_t Background::left_of(double sample) const {
    const double place = std::max(0.0, (sample - first_centre_) * blocks_per_sample_);
    return std::min(static_cast<std::size_t>(place), blocks_.size() - 2);
}

BackgroundLevel Background::at(double sample) const {
    if (blocks_.size() == 1) return blocks_.front().level;
    const std::size_t index = left_of(sample);
    const BackgroundBlock& left = blocks_[index];
    const BackgroundBlock& right = blocks_[index + 1];
    const double part = std::clamp((sample - left.centre()) / (right.centre() - left.centre()), 0.0, 1.0);
    return {left.level.baseline + part * (right.level.baseline - left.level.baseline),
            left.level.noise + part * (right.level.noise - left.level.noise)};
}

void Background::subtract(std::span<const std::int32_t> counts, std::size_t first, std::span<double> above) const {
    for (std::size_t done = 0; done < above.size();) {
        // Up to the next centre of a block the baseline is a straight line.
        const auto from = static_cast<double>(first + done);
        std::size_t end = above.size();
        if (blocks_.size() > 1) {
            const BackgroundBlock& left = blocks_[left_of(from)];
            const BackgroundBlock& right = *(&left + 1);
            const double corner = from < left.centre() ? left.centre() : right.centre();
            if (corner > from) end = std::min(end, static_cast<std::size_t>(std::ceil(corner)) - first);
        }
        const double start = at(from).baseline;
        const auto span = static_cast<double>(end - done);
        const double slope = (at(from + span).baseline - start) / span;
        for (std::size_t i = done; i < end; ++i)
            above[i] = static_cast<double>(counts[first + i]) - (start + slope * static_cast<double>(i - done));
        done = end;
    }
}

double Background::mean_baseline(std::size_t first, std::size_t end) const {
    double sum = 0;
    double weight_sum = 0;
    for (const auto& block : blocks_) {
        const std::size_t from = std::max(first, block.first);
        const std::size_t to = std::min(end, block.end);
        if (from >= to) continue;
        const auto weight = static_cast<double>(to - from);
        sum += weight * block.level.baseline;
        weight_sum += weight;
    }
    return weight_sum > 0 ? sum / weight_sum : blocks_.front().level.baseline;
}

}  // namespace korvane
