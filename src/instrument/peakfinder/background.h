// Baseline and noise of a stretch of samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "instrument/peakfinder/method_constants.h"

namespace korvane {

/// Number of a sample, from the spectrum's first.
using Index = std::ptrdiff_t;

struct BackgroundLevel {
    double baseline = 0;  ///< counts
    double noise = 0;     ///< standard deviation of a sample, counts; at least `least_noise_counts`
};

/// Samples first to end - 1 that share a level.
struct BackgroundBlock {
    Index first = 0;
    Index end = 0;
    BackgroundLevel level;

    double centre() const { return 0.5 * static_cast<double>(first + end - 1); }
};

/// Follows a drifting baseline block by block: mean and deviation of the samples that stay within three deviations of
/// it, started from the densest part of the samples' distribution, so that peaks over less than half of a block do no
/// harm. Between the centres of the blocks the level is interpolated.
class Background {
public:
    /// Estimates over counts[first, end), which must not be empty. The counts must outlive the background.
    Background(std::span<const std::int32_t> counts, Index first, Index end);

    const std::vector<BackgroundBlock>& blocks() const { return blocks_; }
    BackgroundLevel at(double sample) const;
    /// Counts above the baseline of samples first, first + 1, ...
    void subtract(Index first, std::span<double> above) const;
    /// Mean baseline of samples first to end - 1.
    double mean_baseline(Index first, Index end) const;

private:
    /// The block whose centre is the last before the sample, but never the last block.
    const BackgroundBlock* left_of(double sample) const;

    std::span<const std::int32_t> counts_;
    std::vector<BackgroundBlock> blocks_;
    double blocks_per_sample_ = 0;
};

}  // namespace korvane
