#include "instrument/peakfinder/background.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

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
    // Distances from -reach to reach, moved to the low end of the signed numbers, so that one comparison tells them.
    // Wrapping is harmless: what wraps is either clipped or a value no detector gives.
    constexpr std::uint32_t low_end = 0x80000000u;
    const std::uint32_t shift = low_end + static_cast<std::uint32_t>(reach) - static_cast<std::uint32_t>(centre);
    const auto highest = static_cast<std::int32_t>(low_end + 2 * static_cast<std::uint32_t>(reach));
    IntegerLanes beyond{};
    FloatLanes sum{}, square_sum{};
    std::size_t index = 0;
    for (; index + lanes <= counts.size(); index += lanes) {
        std::uint32_t __attribute__((vector_size(16))) samples;
        std::memcpy(&samples, &counts[index], sizeof samples);
        const IntegerLanes far = (IntegerLanes)(samples + shift) > highest;
        const auto distance = (IntegerLanes)(samples - static_cast<std::uint32_t>(centre));
        const FloatLanes real = __builtin_convertvector(distance & ~far, FloatLanes);
        beyond += far;
        sum += real;
        square_sum += real * real;
    }
    moments.count += static_cast<double>(index);
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        moments.count += beyond[lane];
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
BackgroundLevel densest_half(std::span<const std::int32_t> samples, double least_noise) {
    std::array<std::int32_t, guess_samples> selected;
    const Index number = std::min<Index>(selected.size(), samples.size());
    for (Index i = 0; i < number; ++i) selected[i] = samples[i * samples.size() / number];
    std::sort(selected.begin(), selected.begin() + number);
    const Index half = number / 2;
    auto width_at = [&](Index i) { return static_cast<double>(selected[i + half]) - selected[i]; };
    Index best = 0;
    for (Index i = 0; i + half < number; ++i)
        if (width_at(i) < width_at(best)) best = i;
    const double noise = std::max(least_noise, width_at(best) / half_interval_width);
    return {static_cast<double>(selected[best + half / 2]), noise};
}

/// One step of clipping around a level; false when too few samples lie there to be the baseline.
bool clip(std::span<const std::int32_t> samples, double least_noise, BackgroundBlock& block) {
    BackgroundLevel& level = block.level;
    const auto centre = static_cast<std::int32_t>(std::floor(level.baseline + 0.5));
    const double reach = std::min(std::ceil(clip_deviations * level.noise), largest_clip_counts);
    const std::size_t judged = std::min<std::size_t>(samples.size(), block_stretches * stretch_samples);
    const std::size_t stretches = judged < samples.size() ? block_stretches : 1;
    ClippedMoments moments;
    double lowest = std::numeric_limits<double>::infinity();
    double highest = -lowest;
    for (std::size_t i = 0; i < stretches; ++i) {
        ClippedMoments part;
        add_clipped(samples.subspan(i * samples.size() / stretches, judged / stretches), centre,
                    static_cast<std::int32_t>(reach), part);
        moments.count += part.count;
        moments.sum += part.sum;
        moments.square_sum += part.square_sum;
        // A stretch far from the level is at another, or full of peaks.
        const bool is_far = part.count < least_baseline_part * static_cast<double>(judged / stretches);
        lowest = std::min(lowest, is_far ? -reach : part.sum / part.count);
        highest = std::max(highest, is_far ? reach : part.sum / part.count);
    }
    if (moments.count < least_baseline_part * static_cast<double>(judged)) return false;
    const double mean = moments.sum / moments.count;
    const double variance = std::max(0.0, moments.square_sum / moments.count - mean * mean);
    level = {centre + mean, std::max(least_noise, std::sqrt(variance) / clipped_deviation)};
    block.is_uneven = highest - lowest > uneven_deviations * level.noise;
    return true;
}

bool settle(std::span<const std::int32_t> samples, double least_noise, BackgroundBlock& block) {
    for (int step = 0; step < most_clip_steps; ++step) {
        const BackgroundLevel before = block.level;
        if (!clip(samples, least_noise, block)) return false;
        if (std::abs(block.level.baseline - before.baseline) < settled_baseline_deviations * block.level.noise &&
            std::abs(block.level.noise - before.noise) < settled_noise_part * block.level.noise)
            break;
    }
    return true;
}

/// What all counts are multiples of, but for an offset.
double digit_counts(std::span<const std::int32_t> samples) {
    std::int64_t digit = 0;
    const Index number = std::min<Index>(digit_samples, std::ssize(samples));
    for (Index i = 0; i < number && digit != 1; ++i)
        digit = std::gcd(digit, std::int64_t{samples[i * std::ssize(samples) / number]} - samples.front());
    return static_cast<double>(std::max<std::int64_t>(1, digit));
}

}  // namespace

Background::Background(std::span<const std::int32_t> counts, Index first, Index end) : counts_(counts) {
    const Index size = end - first;
    least_noise_ *= digit_counts(counts.subspan(first, size));
    const Index short_blocks = std::clamp<Index>(size / least_block_samples, 1, least_blocks);
    const Blocks blocks =
        parts(first, end, std::max(short_blocks, size / block_samples), std::numeric_limits<double>::infinity());
    auto jumps = [&](std::size_t left) {
        if (left + 1 >= blocks.size()) return false;
        const BackgroundLevel& before = blocks[left].level;
        const BackgroundLevel& after = blocks[left + 1].level;
        return std::abs(after.baseline - before.baseline) > jump_deviations * std::min(before.noise, after.noise);
    };
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const BackgroundBlock& block = blocks[i];
        blocks_.push_back(block);
        const Index pieces = (block.end - block.first) / fine_block_samples;
        if (pieces < 3 || !(block.is_uneven || jumps(i) || (i > 0 && jumps(i - 1)))) continue;
        // Where peaks cover all of a piece, what they leave is noisier than what lies about.
        double noise = block.level.noise;
        for (const std::size_t near : {i - 1, i + 1})
            if (near < blocks.size()) noise = std::min(noise, blocks[near].level.noise);
        const Blocks fine = parts(block.first, block.end, pieces, most_noise_part * noise);
        if (fine.empty()) continue;
        blocks_.pop_back();
        blocks_.insert(blocks_.end(), fine.begin(), fine.end());
    }
    if (blocks_.size() > blocks.size()) find_steps();
    draw_lines();
}

Background::Blocks Background::parts(Index first, Index end, Index number, double most_noise) const {
    Blocks blocks;
    std::vector<Index> visible;
    BackgroundBlock block;
    bool followed = false;
    for (Index i = 0; i < number; ++i) {
        block.first = first + (end - first) * i / number;
        block.end = first + (end - first) * (i + 1) / number;
        const auto samples = counts_.subspan(block.first, block.end - block.first);
        followed = followed && settle(samples, least_noise_, block);
        if (!followed) block.level = densest_half(samples, least_noise_);
        followed = (followed || settle(samples, least_noise_, block)) && block.level.noise <= most_noise;
        if (followed) visible.push_back(i);
        blocks.push_back(block);
    }
    if (visible.empty() && std::isfinite(most_noise)) return {};
    if (visible.empty() || std::ssize(visible) == number) return blocks;
    for (Index i = 0; i < number; ++i)
        blocks[i].level =
            blocks[*std::ranges::min_element(visible, {}, [&](Index j) { return std::abs(j - i); })].level;
    return blocks;
}

Index Background::step_between(const BackgroundBlock& left, const BackgroundBlock& right) const {
    const double noise = std::min(left.level.noise, right.level.noise);
    const double difference = right.level.baseline - left.level.baseline;
    if (std::abs(difference) < step_deviations * noise) return -1;
    const auto from = static_cast<Index>(left.centre());
    const auto to = static_cast<Index>(right.centre());
    const double most = clip_deviations * clip_deviations * noise * noise;
    // Sums of the squares of what a level leaves over.
    auto square = [&](Index i, double level) { return std::min(most, (counts_[i] - level) * (counts_[i] - level)); };
    double step = 0, slope = 0, least = 0;
    Index place = from;
    for (Index i = from; i < to; ++i) {
        const double part = static_cast<double>(i - from) / static_cast<double>(to - from);
        const double after = square(i, right.level.baseline);
        slope += square(i, left.level.baseline + part * difference) - after;
        step += square(i, left.level.baseline) - after;
        if (step < least) {
            least = step;
            place = i + 1;
        }
    }
    return least + least_step_gain * noise * noise < slope ? place : -1;
}

void Background::find_steps() {
    for (std::size_t i = 0; i + 2 < blocks_.size(); ++i) {
        const Index place = step_between(blocks_[i], blocks_[i + 2]);
        if (place < 0) continue;
        blocks_[i].end = place;
        blocks_[i].steps_after = true;
        blocks_[i + 2].first = place;
        blocks_.erase(blocks_.begin() + i + 1);
    }
}

void Background::draw_lines() {
    lines_per_sample_ = 1 / static_cast<double>(blocks_.front().end - blocks_.front().first);
    lines_.push_back({std::numeric_limits<double>::lowest(), blocks_.front().level});
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        const BackgroundBlock& block = blocks_[i];
        Line& line = lines_.emplace_back(block.centre(), block.level);
        if (i + 1 == blocks_.size()) break;
        const BackgroundBlock& next = blocks_[i + 1];
        if (block.steps_after) {
            lines_.push_back({static_cast<double>(block.end), next.level});
        } else {
            const double length = next.centre() - block.centre();
            line.slope = {(next.level.baseline - block.level.baseline) / length,
                          (next.level.noise - block.level.noise) / length};
        }
    }
}

Index Background::line_at(double sample) const {
    const Index last = std::ssize(lines_) - 1;
    const double place = std::max(0.0, (sample - lines_[1].from) * lines_per_sample_ + 1);
    const auto guess = static_cast<Index>(std::min(place, static_cast<double>(last)));
    if (lines_[guess].from <= sample && (guess == last || sample < lines_[guess + 1].from)) return guess;
    return std::ranges::upper_bound(lines_, sample, {}, &Line::from) - lines_.begin() - 1;
}

BackgroundLevel Background::at(double sample) const {
    const auto& [from, level, slope] = lines_[line_at(sample)];
    return {level.baseline + slope.baseline * (sample - from), level.noise + slope.noise * (sample - from)};
}

void Background::subtract(Index first, std::span<double> above) const {
    const Index end = first + std::ssize(above);
    Index number = line_at(static_cast<double>(first));
    for (Index from = first; from < end; ++number) {
        const auto& [line_from, level, slope] = lines_[number];
        Index to = end;
        if (number + 1 < std::ssize(lines_)) to = std::min(to, static_cast<Index>(std::ceil(lines_[number + 1].from)));
        const double start = level.baseline + slope.baseline * (static_cast<double>(from) - line_from);
        // A short counter becomes a real number two at a time.
        const auto length = static_cast<std::int32_t>(to - from);
        const std::int32_t* const counts = &counts_[from];
        for (std::int32_t i = 0; i < length; ++i) above[from - first + i] = counts[i] - (start + slope.baseline * i);
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
