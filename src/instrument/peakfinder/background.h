// Baseline and noise of a stretch of samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace korvane {

struct BackgroundLevel {
    double baseline = 0;  ///< counts
    double noise = 0;     ///< standard deviation of a sample, counts; never below `Background::least_noise`
};

/// Samples first to end - 1 that share a level.
struct BackgroundBlock {
    std::size_t first = 0;
    std::size_t end = 0;
    BackgroundLevel level;

    double centre() const { return 0.5 * static_cast<double>(first + end - 1); }
};

/// Follows a drifting baseline block by block: mean and deviation of the samples that stay within three deviations of
/// it, started from the densest part of the samples' distribution, so that peaks over less than half of a block do no
/// harm. Between the centres of the blocks the level is interpolated.
class Background {
public:
    /// Rounding to whole counts alone makes 0.29.
    static constexpr double least_noise = 0.5;

    /// Estimates over counts[first, end), which must not be empty.
    Background(std::span<const std::int32_t> counts, std::size_t first, std::size_t end);

    const std::vector<BackgroundBlock>& blocks() const { return blocks_; }
    BackgroundLevel at(double sample) const;
    /// Counts above the baseline of samples first, first + 1, ...
    void subtract(std::span<const std::int32_t> counts, std::size_t first, std::span<double> above) const;
    /// Mean baseline of samples first to end - 1.
    double mean_baseline(std::size_t first, std::size_t end) const;

private:
    /// The block whose centre is the last before the sample, but never the last block.
    std::size_t left_of(double sample) const;

    std::vector<BackgroundBlock> blocks_;
    double first_centre_ = 0;
    double blocks_per_sample_ = 0;
};

}  // namespace korvane
