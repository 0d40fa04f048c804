// The two passes over raw samples that have to run at memory speed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace korvane {

/// Count, sum and sum of squares of the distances from `centre` of the samples that lie within `reach` of it.
struct ClippedMoments {
    double count = 0;
    double sum = 0;
    double square_sum = 0;
};

ClippedMoments clipped_moments(std::span<const std::int32_t> counts, std::int32_t centre, std::int32_t reach);

inline constexpr std::size_t scan_chunk = 16;

/// Appends the first index of every chunk of `scan_chunk` samples that holds a sample above the threshold, for the
/// chunks of counts[first, end) counted from `first`; the last chunk may be shorter.
void append_chunks_above(std::span<const std::int32_t> counts, std::size_t first, std::size_t end,
                         std::int32_t threshold, std::vector<std::size_t>& chunks);

}  // namespace korvane
