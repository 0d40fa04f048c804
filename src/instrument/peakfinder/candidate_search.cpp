#include <array>
#include <bit>
#include <cstring>
#include <numbers>

#include "instrument/peakfinder/search_steps.h"

namespace korvane {

using namespace method;

namespace {

/// Whether one of `number` samples, a multiple of four, lies above.
template <Index number>
bool any_above(const std::int32_t* samples, std::int32_t threshold) {
    using Lanes = std::int32_t __attribute__((vector_size(16)));
    Lanes above{};
    for (Index i = 0; i < number; i += 4) {
        Lanes lanes;
        std::memcpy(&lanes, samples + i, sizeof lanes);
        above |= lanes > threshold;
    }
    const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(above);
    return (halves[0] | halves[1]) != 0;
}

/// A piece of the spectrum that rises above the noise.
struct Region {
    Index first;
    Index end;
    double sigma;
    BackgroundLevel level;
};

struct Apex {
    Index place;  // in the region
    double value;
};

class CandidateSearch {
public:
    explicit CandidateSearch(const SearchContext& context) : context_(context) {}

    std::vector<PeakShape> run(std::span<const Index> chunks) {
        const Index lowest = context_.background.blocks().front().first;
        const Index highest = context_.background.blocks().back().end;
        for (std::size_t i = 0; i < chunks.size();) {
            const double sigma = context_.expected_sigma(static_cast<double>(chunks[i]));
            const Index margin = ceil_of(region_reach_sigmas * sigma) + 1;
            const Index first = chunks[i];
            Index end = first + chunk_samples;
            for (++i; i < chunks.size() && chunks[i] <= end + 2 * margin; ++i) end = chunks[i] + chunk_samples;
            search(std::max(lowest, first - margin), std::min(highest, end + margin));
        }
        return std::move(found_);
    }

private:
    /// A long stretch of peaks is taken in pieces that overlap; a piece decides on the apexes of its own part.
    void search(Index first, Index end) {
        for (Index from = first; from < end; from += piece_samples) {
            const Index to = std::min(end, from + piece_samples);
            const double middle = 0.5 * static_cast<double>(from + to);
            const double sigma = context_.expected_sigma(middle);
            const auto overlap = ceil_of(piece_overlap_sigmas * sigma);
            region_ = {std::max(first, from - overlap), std::min(end, to + overlap), sigma,
                       context_.background.at(middle)};
            smooth();
            collect_apexes();
            merge_close_apexes();
            for (const auto& apex : apexes_)
                if (region_.first + apex.place >= from && region_.first + apex.place < to) judge(apex);
        }
    }

    void smooth() {
        const Index size = region_.end - region_.first;
        above_.resize(size);
        scratch_.resize(size);
        context_.background.subtract(region_.first, above_);
        smoothed_ = above_;
        const double variance = smoothing_sigmas * smoothing_sigmas * region_.sigma * region_.sigma;
        variance <= most_binomial_variance ? smooth_binomially(variance) : smooth_by_running_means(variance);
    }

    void smooth_binomially(double variance) {
        // Every pass with the weights 1/4, 1/2, 1/4 adds half a square sample.
        const int passes = static_cast<int>(2 * variance + 0.5);
        smoothing_gain_ = 1;
        for (int pass = 0; pass < passes; ++pass) {
            scratch_.front() = smoothed_.front();
            scratch_.back() = smoothed_.back();
            for (std::size_t i = 1; i + 1 < smoothed_.size(); ++i)
                scratch_[i] = 0.25 * (smoothed_[i - 1] + smoothed_[i + 1]) + 0.5 * smoothed_[i];
            smoothed_.swap(scratch_);
            smoothing_gain_ *= (4.0 * pass + 1) * (4 * pass + 3) / ((4.0 * pass + 2) * (4 * pass + 4));
        }
    }

    void smooth_by_running_means(double variance) {
        // Three, of an odd width.
        const auto half = static_cast<Index>(0.5 * std::sqrt(4 * variance + 1));
        const Index last = std::ssize(smoothed_) - 1;
        for (int pass = 0; pass < 3; ++pass) {
            auto at = [&](Index i) { return smoothed_[std::clamp<Index>(i, 0, last)]; };
            double sum = 0;
            for (Index i = -half; i <= half; ++i) sum += at(i);
            for (Index i = 0; i <= last; ++i) {
                scratch_[i] = sum / static_cast<double>(2 * half + 1);
                sum += at(i + half + 1) - at(i - half);
            }
            smoothed_.swap(scratch_);
        }
        smoothing_gain_ = 1 / (2 * std::sqrt(std::numbers::pi * variance));
    }

    /// An apex counts once the curve has fallen from it, a valley once the curve has risen from it, by more than chance
    /// allows. Within one peak the ions' own statistics make dips; far from it only the noise does.
    void collect_apexes() {
        apexes_.clear();
        const double noise_variance = 2 * region_.level.noise * region_.level.noise * smoothing_gain_;
        const double ion_variance = context_.model.ion_variance() * smoothing_gain_;
        const double least_difference = std::sqrt(least_rise_deviations * least_rise_deviations * noise_variance);
        auto within_peak_differs = [&](double difference, double high) {
            return difference * difference > least_valley_deviations * least_valley_deviations *
                                                 (noise_variance + ion_variance * std::max(high, 0.0));
        };
        const auto peak_reach = ceil_of(one_peak_sigmas * region_.sigma);
        Apex top{0, 0};
        double valley = 0;
        bool rising = false;
        const double* const values = smoothed_.data();
        const Index size = std::ssize(smoothed_);
        for (Index i = 0;; ++i) {
            if (rising) {
                for (; i < size && top.value - values[i] <= least_difference; ++i)
                    if (values[i] > top.value) top = {i, values[i]};
            } else {
                for (; i < size && values[i] - valley <= least_difference; ++i) valley = std::min(valley, values[i]);
            }
            if (i == size) break;
            const double value = values[i];
            const double high = rising ? top.value : value;
            const bool near = (rising || !apexes_.empty()) && i - top.place < peak_reach;
            if (near && !within_peak_differs(high - (rising ? value : valley), high)) continue;
            if (rising) apexes_.push_back(top);
            rising = !rising;
            valley = value;
            if (rising) top = {i, value};
        }
        if (rising) apexes_.push_back(top);
    }

    void merge_close_apexes() {
        const double least_distance = resolved_sigmas * region_.sigma;
        std::size_t kept = 0;
        for (const auto& apex : apexes_) {
            if (kept == 0 || static_cast<double>(apex.place - apexes_[kept - 1].place) >= least_distance)
                apexes_[kept++] = apex;
            else if (apex.value > apexes_[kept - 1].value)
                apexes_[kept - 1] = apex;
        }
        apexes_.resize(kept);
    }

    double late_ions_at(double sample) const {
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

    /// What the apex stands on where the baseline is not that of its block.
    double pedestal(const Apex& apex) const {
        const auto near = ceil_of(pedestal_from_sigmas * region_.sigma);
        const auto far = ceil_of(pedestal_to_sigmas * region_.sigma);
        double sum = 0;
        double least = smoothed_[apex.place];
        for (const Index direction : {-1, 1}) {
            double lowest = smoothed_[apex.place];
            for (Index distance = near; distance <= far; ++distance) {
                const Index place = apex.place + direction * distance;
                if (place >= 0 && place < std::ssize(smoothed_)) lowest = std::min(lowest, smoothed_[place]);
            }
            sum += lowest;
            least = std::min(least, lowest);
        }
        // Between two peaks one side is a valley, which says little of the other. The lowest of some samples lies below
        // what it is the lowest of.
        const double noise_variance = region_.level.noise * region_.level.noise * smoothing_gain_;
        const double level = std::min(0.5 * sum, most_slope * least);
        if (level < lowest_deviations * std::sqrt(noise_variance)) return std::max(0.0, level);
        const double variance = noise_variance + context_.model.ion_variance() * level * smoothing_gain_;
        return level + lowest_deviations * std::sqrt(variance);
    }

    /// Mean level of the stretches to either side, the second lowest: one may be without the ions that the apex stands
    /// on, two may hold other peaks. Outside the region nothing rises above the noise.
    double surroundings(const Apex& apex) const {
        std::array<double, 4> levels{};
        for (std::size_t i = 0; i < levels.size(); ++i) {
            const double nearest = i < 2 ? surroundings_sigmas[0] : surroundings_sigmas[1];
            const double farthest = i < 2 ? surroundings_sigmas[1] : surroundings_sigmas[2];
            const Index direction = i % 2 == 0 ? -1 : 1;
            const auto from = ceil_of(nearest * region_.sigma);
            const auto to = std::max(from, static_cast<Index>(farthest * region_.sigma));
            for (Index distance = from; distance <= to; ++distance) {
                const Index place = apex.place + direction * distance;
                if (place >= 0 && place < std::ssize(above_)) levels[i] += above_[place];
            }
            levels[i] /= static_cast<double>(to - from + 1);
        }
        std::ranges::nth_element(levels, levels.begin() + 1);
        return std::max(0.0, levels[1]);
    }

    void judge(const Apex& apex) {
        const Index place = region_.first + apex.place;
        double pedestal_counts = std::max(late_ions_at(static_cast<double>(place)), pedestal(apex));
        if (apex.value * region_.sigma < surrounded_ions * context_.model.counts_per_ion)
            pedestal_counts = std::max(pedestal_counts, surroundings(apex));
        const double sigma = context_.expected_sigma(static_cast<double>(place));
        const Correlation peak = correlation(above_, apex.place, sigma, correlation_sigmas, pedestal_counts);
        const double noise = region_.level.noise;
        const double variance = noise * noise + context_.model.ion_variance() * pedestal_counts;
        if (!(peak.sum > least_signal_to_noise * std::sqrt(peak.square_sum * variance))) return;
        // The weights halve the distance of the peak from their centre.
        const double shift = std::clamp(2 * peak.moment / peak.sum, -sigma, sigma);
        found_.push_back({peak.height(), static_cast<double>(place) + shift, sigma});
    }

    const SearchContext& context_;
    Region region_{};
    std::vector<double> above_;  // counts above the baseline in the region
    std::vector<double> smoothed_;
    std::vector<double> scratch_;
    double smoothing_gain_ = 1;  // sum of the squares of the smoothing weights
    std::vector<Apex> apexes_;
    std::vector<PeakShape> found_;
};

}  // namespace

std::vector<Index> chunks_above_noise(const SearchContext& context) {
    std::vector<Index> chunks;
    for (const auto& block : context.background.blocks()) {
        const Index end = block.end;
        const double height = std::floor(block.level.baseline + chunk_deviations * block.level.noise);
        const auto threshold = static_cast<std::int32_t>(std::min(height, 2147483647.0));
        Index chunk = block.first;
        for (Index next; chunk + chunk_samples <= end; chunk = next) {
            // Most of a spectrum is noise: several chunks at once.
            const bool several = chunk + scanned_samples <= end;
            next = chunk + (several ? scanned_samples : chunk_samples);
            if (several && !any_above<scanned_samples>(&context.counts[chunk], threshold)) continue;
            for (Index i = chunk; i < next; i += chunk_samples)
                if (any_above<chunk_samples>(&context.counts[i], threshold)) chunks.push_back(i);
        }
        const auto rest = context.counts.subspan(chunk, end - chunk);
        if (std::ranges::any_of(rest, [&](auto value) { return value > threshold; })) chunks.push_back(chunk);
    }
    return chunks;
}

std::vector<PeakShape> find_candidates(const SearchContext& context, std::span<const Index> chunks) {
    return CandidateSearch(context).run(chunks);
}

}  // namespace korvane
