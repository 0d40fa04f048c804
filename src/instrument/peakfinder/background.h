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
    bool steps_after = false;  ///< the level jumps at the end
    bool is_uneven = false;    ///< the stretches of a long block lie at different levels

    double centre() const { return 0.5 * static_cast<double>(first + end - 1); }
};

/// Follows a drifting baseline block by block: mean and deviation of the samples that stay within three deviations of
/// it, started from the densest part of the samples' distribution, so that peaks over less than half of a block do no
/// harm. Between the centres of the blocks the level is interpolated. Where it changes faster than long blocks follow,
/// blocks are short; where it jumps, they end.
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
    using Blocks = std::vector<BackgroundBlock>;

    /// As many of about equal length; a block that hides its baseline, or is noisier than may be, has the level of the
    /// nearest one that shows it. None where none does and the noise is limited.
    Blocks parts(Index first, Index end, Index number, double most_noise) const;
    void find_steps();
    /// Where the samples between the centres of two blocks jump from the level of the one to that of the other, or -1.
    Index step_between(const BackgroundBlock& left, const BackgroundBlock& right) const;
    /// From a centre or a step on to the next the level is a straight line.
    struct Line {
        double from = 0;
        BackgroundLevel level;
        BackgroundLevel slope = {};  ///< per sample
    };

    void draw_lines();
    /// Number of the line under a sample.
    Index line_at(double sample) const;

    std::span<const std::int32_t> counts_;
    double least_noise_ = method::least_noise_counts;
    Blocks blocks_;
    std::vector<Line> lines_;
    double lines_per_sample_ = 1;  ///< by the first block, which mostly all are as long as
};

}  // namespace korvane
