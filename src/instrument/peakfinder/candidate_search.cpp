#include "instrument/peakfinder/candidate_search.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "instrument/peakfinder/sample_scan.h"

namespace korvane {

namespace {

constexpr double busy_deviations = 3.5;
constexpr double least_signal_to_noise = 5;
constexpr double least_valley_deviations = 4.5;
constexpr double least_rise_deviations = 3;
constexpr double one_peak_sigmas = 6;
constexpr double smoothing_sigmas = 0.35;
constexpr double resolved_sigmas = 2.4;  // about one full width: nearer maxima are one peak
constexpr std::size_t piece_samples = 8192;
constexpr double piece_overlap_sigmas = 10;
constexpr double region_reach_sigmas = 3;
// Late ions that a neighbour is granted: no instrument in order has more.
constexpr double granted_tail_fraction = 0.15;
constexpr double tail_reach_sigmas = 30;

std::int32_t busy_threshold(const BackgroundLevel& level) {
    const double threshold = std::floor(level.baseline + busy_deviations * level.noise);
    return static_cast<std::int32_t>(std::clamp(threshold, -2147483648.0, 2147483647.0));
}

}  // namespace

std::vector<std::size_t> busy_chunks(std::span<const std::int32_t> counts, const Background& background) {
    std::vector<std::size_t> chunks;
    for (const auto& block : background.blocks())
        append_chunks_above(counts, block.first, block.end, busy_threshold(block.level), chunks);
    return chunks;
}

std::vector<PeakShape> CandidateSearch::search(std::span<const std::size_t> chunks) {
    found_.clear();
    const std::size_t lowest = background_.blocks().front().first;
    const std::size_t highest = background_.blocks().back().end;
    for (std::size_t i = 0; i < chunks.size();) {
        const double sigma = traits_.sigma_samples(axis_, static_cast<double>(chunks[i]));
        const auto margin = static_cast<std::size_t>(std::ceil(region_reach_sigmas * sigma)) + 1;
        const std::size_t first = chunks[i];
        std::size_t end = chunks[i] + scan_chunk;
        for (++i; i < chunks.size() && chunks[i] <= end + 2 * margin; ++i) end = chunks[i] + scan_chunk;
        search_region(first > lowest + margin ? first - margin : lowest, std::min(highest, end + margin));
    }
    return std::move(found_);
}

void CandidateSearch::search_region(std::size_t first, std::size_t end) {
    // A long stretch of peaks is taken in pieces that overlap; a piece decides on the maxima of its own part.
    for (std::size_t from = first; from < end; from += piece_samples) {
        const std::size_t to = std::min(end, from + piece_samples);
        const double middle = 0.5 * static_cast<double>(from + to);
        const double sigma = traits_.sigma_samples(axis_, middle);
        const auto overlap = static_cast<std::size_t>(std::ceil(piece_overlap_sigmas * sigma));
        const std::size_t piece_first = from - std::min(overlap, from - first);
        const Region region{piece_first, std::min(end, to + overlap), sigma, background_.at(middle)};
        smooth(region);
        collect_maxima(region);
        drop_close_maxima(region);
        for (const auto& maximum : maxima_)
            if (region.first + maximum.place >= from && region.first + maximum.place < to)
                judge_maximum(region, maximum);
    }
}

void CandidateSearch::smooth(const Region& region) {
    const std::size_t size = region.end - region.first;
    smoothed_.resize(size);
    scratch_.resize(size);
    background_.subtract(counts_, region.first, smoothed_);
    above_ = smoothed_;
    const double wanted_variance = smoothing_sigmas * smoothing_sigmas * region.sigma * region.sigma;
    smoothing_gain_ = 1;
    if (wanted_variance <= 4) {
        // Every pass with the weights 1/4, 1/2, 1/4 adds half a square sample.
        const int passes = static_cast<int>(2 * wanted_variance + 0.5);
        for (int pass = 0; pass < passes; ++pass) {
            scratch_.front() = smoothed_.front();
            scratch_.back() = smoothed_.back();
            for (std::size_t i = 1; i + 1 < size; ++i)
                scratch_[i] = 0.25 * (smoothed_[i - 1] + smoothed_[i + 1]) + 0.5 * smoothed_[i];
            smoothed_.swap(scratch_);
            smoothing_gain_ *= (4.0 * pass + 1) * (4 * pass + 3) / ((4.0 * pass + 2) * (4 * pass + 4));
        }
        return;
    }
    // Three running means of an odd width.
    const auto half = static_cast<std::ptrdiff_t>(0.5 * std::sqrt(4 * wanted_variance + 1));
    const auto last = static_cast<std::ptrdiff_t>(size) - 1;
    for (int pass = 0; pass < 3; ++pass) {
        auto at = [&](std::ptrdiff_t i) {
            return smoothed_[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(i, 0, last))];
        };
        double sum = 0;
        for (auto i = -half; i <= half; ++i) sum += at(i);
        for (std::ptrdiff_t i = 0; i <= last; ++i) {
            scratch_[static_cast<std::size_t>(i)] = sum / static_cast<double>(2 * half + 1);
            sum += at(i + half + 1) - at(i - half);
        }
        smoothed_.swap(scratch_);
    }
    smoothing_gain_ = 1 / (2 * std::sqrt(std::numbers::pi * wanted_variance));
}

void CandidateSearch::collect_maxima(const Region& region) {
    // A maximum counts once the curve has fallen from it, a valley once the curve has risen from it, by more than
    // chance allows. Within one peak the ions' own statistics make dips; far from it only the noise does.
    maxima_.clear();
    const double noise_variance = 2 * region.level.noise * region.level.noise * smoothing_gain_;
    const double ion_variance = traits_.ion_variance() * smoothing_gain_;
    const double least_square = least_rise_deviations * least_rise_deviations * noise_variance;
    const double least_difference = std::sqrt(least_square);
    constexpr double ratio = least_valley_deviations * least_valley_deviations;
    auto within_peak_differs = [&](double difference, double high) {
        return difference * difference > ratio * (noise_variance + ion_variance * std::max(high, 0.0));
    };
    const auto peak_reach = static_cast<std::size_t>(std::ceil(one_peak_sigmas * region.sigma));
    Maximum top{0, 0};
    double valley = 0;
    bool rising = false;
    for (std::size_t i = 0; i < smoothed_.size(); ++i) {
        const double value = smoothed_[i];
        if (rising && value > top.value) {
            top = {i, value};
        } else if (!rising && value < valley) {
            valley = value;
        } else {
            const double high = rising ? top.value : value;
            const double difference = high - (rising ? value : valley);
            if (difference <= least_difference) continue;
            const bool near = (rising || !maxima_.empty()) && i - top.place < peak_reach;
            if (near && !within_peak_differs(difference, high)) continue;
            if (rising) maxima_.push_back(top);
            rising = !rising;
            valley = value;
            if (rising) top = {i, value};
        }
    }
    if (rising) maxima_.push_back(top);
}

void CandidateSearch::drop_close_maxima(const Region& region) {
    const double least_distance = resolved_sigmas * region.sigma;
    std::size_t kept = 0;
    for (const auto& maximum : maxima_) {
        if (kept > 0 && static_cast<double>(maximum.place - maxima_[kept - 1].place) < least_distance) {
            if (maximum.value > maxima_[kept - 1].value) maxima_[kept - 1] = maximum;
        } else {
            maxima_[kept++] = maximum;
        }
    }
    maxima_.resize(kept);
}

double CandidateSearch::late_ions_at(double sample) const {
    double late = 0;
    for (auto peak = found_.rbegin(); peak != found_.rend(); ++peak) {
        const double distance = (sample - peak->centre) / peak->sigma;
        if (distance > tail_reach_sigmas) break;
        // Density of the delayed ions far from the centre, relative to the height of a Gaussian.
        const double rate = 1 / tail_sigmas;
        late += peak->height * granted_tail_fraction * rate * std::sqrt(2 * std::numbers::pi) *
                std::exp(0.5 * rate * rate - rate * distance);
    }
    return late;
}

double CandidateSearch::pedestal(const Region& region, const Maximum& maximum) const {
    const auto near = static_cast<std::size_t>(std::ceil(1.5 * region.sigma));
    const auto far = static_cast<std::size_t>(std::ceil(one_peak_sigmas * region.sigma));
    double lowest_left = std::numeric_limits<double>::infinity();
    double lowest_right = lowest_left;
    for (std::size_t distance = near; distance <= far; ++distance) {
        if (maximum.place >= distance) lowest_left = std::min(lowest_left, smoothed_[maximum.place - distance]);
        if (maximum.place + distance < smoothed_.size())
            lowest_right = std::min(lowest_right, smoothed_[maximum.place + distance]);
    }
    const double lowest = std::min(lowest_left, lowest_right);
    return std::isfinite(lowest) ? std::max(0.0, lowest) : 0;
}

void CandidateSearch::judge_maximum(const Region& region, const Maximum& maximum) {
    const auto place = static_cast<std::ptrdiff_t>(region.first + maximum.place);
    const double late = late_ions_at(static_cast<double>(place)) + pedestal(region, maximum);
    const double sigma = traits_.sigma_samples(axis_, static_cast<double>(place));
    const auto reach = static_cast<std::ptrdiff_t>(std::ceil(2.5 * sigma));
    const auto from = std::max(static_cast<std::ptrdiff_t>(region.first), place - reach);
    const auto to = std::min(static_cast<std::ptrdiff_t>(region.end) - 1, place + reach);
    scratch_.resize(std::max(scratch_.size(), static_cast<std::size_t>(to - from + 1)));
    const std::span<double> weights(scratch_.data(), static_cast<std::size_t>(to - from + 1));
    gaussian_samples({1, static_cast<double>(place), sigma}, from, weights);
    double sum = 0;
    double moment = 0;
    double square_sum = 0;
    for (auto i = from; i <= to; ++i) {
        const double weight = weights[static_cast<std::size_t>(i - from)];
        const double above = above_[static_cast<std::size_t>(i) - region.first] - late;
        sum += weight * above;
        moment += weight * above * static_cast<double>(i - place);
        square_sum += weight * weight;
    }
    const double noise = region.level.noise;
    const double deviation = std::sqrt(square_sum * (noise * noise + traits_.ion_variance() * late));
    if (!(sum > least_signal_to_noise * deviation)) return;
    // The weights halve the distance of the peak from their centre.
    const double shift = std::clamp(2 * moment / sum, -sigma, sigma);
    found_.push_back({sum / square_sum, static_cast<double>(place) + shift, sigma});
}

}  // namespace korvane
