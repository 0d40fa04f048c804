#include "instrument/peakfinder/sample_scan.h"

#include <algorithm>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define KORVANE_SSE2 1
#endif

namespace korvane {

namespace {

bool any_above(const std::int32_t* samples, std::size_t size, std::int32_t threshold) {
    return std::any_of(samples, samples + size, [threshold](std::int32_t value) { return value > threshold; });
}

void add_sample(std::int32_t value, std::int32_t centre, std::int32_t reach, ClippedMoments& moments) {
    const std::int64_t distance = static_cast<std::int64_t>(value) - centre;
    if (distance < -static_cast<std::int64_t>(reach) || distance > reach) return;
    const auto real = static_cast<double>(distance);
    moments.count += 1;
    moments.sum += real;
    moments.square_sum += real * real;
}

#ifdef KORVANE_SSE2

__m128i load(const std::int32_t* samples) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples));
}

bool any_above_16(const std::int32_t* samples, __m128i threshold) {
    const __m128i low =
        _mm_or_si128(_mm_cmpgt_epi32(load(samples), threshold), _mm_cmpgt_epi32(load(samples + 4), threshold));
    const __m128i high =
        _mm_or_si128(_mm_cmpgt_epi32(load(samples + 8), threshold), _mm_cmpgt_epi32(load(samples + 12), threshold));
    return _mm_movemask_epi8(_mm_or_si128(low, high)) != 0;
}

double lane_sum(__m128 lanes) {
    float values[4];
    _mm_storeu_ps(values, lanes);
    return static_cast<double>(values[0]) + values[1] + values[2] + values[3];
}

#endif

}  // namespace

ClippedMoments clipped_moments(std::span<const std::int32_t> counts, std::int32_t centre, std::int32_t reach) {
    ClippedMoments moments;
    std::size_t index = 0;
#ifdef KORVANE_SSE2
    // Wrapping subtraction is harmless: what wraps is either clipped or a value no detector gives.
    const __m128i middle = _mm_set1_epi32(centre);
    const __m128i above = _mm_set1_epi32(reach);
    const __m128i below = _mm_set1_epi32(-reach);
    __m128i clipped = _mm_setzero_si128();
    __m128 sum = _mm_setzero_ps();
    __m128 square_sum = _mm_setzero_ps();
    for (; index + 4 <= counts.size(); index += 4) {
        const __m128i distance = _mm_sub_epi32(load(counts.data() + index), middle);
        const __m128i outside = _mm_or_si128(_mm_cmpgt_epi32(distance, above), _mm_cmplt_epi32(distance, below));
        const __m128 real = _mm_cvtepi32_ps(_mm_andnot_si128(outside, distance));
        clipped = _mm_sub_epi32(clipped, outside);
        sum = _mm_add_ps(sum, real);
        square_sum = _mm_add_ps(square_sum, _mm_mul_ps(real, real));
    }
    std::int32_t clipped_lanes[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(clipped_lanes), clipped);
    moments.count = static_cast<double>(index);
    for (const auto lane : clipped_lanes) moments.count -= lane;
    moments.sum = lane_sum(sum);
    moments.square_sum = lane_sum(square_sum);
#endif
    for (; index < counts.size(); ++index) add_sample(counts[index], centre, reach, moments);
    return moments;
}

void append_chunks_above(std::span<const std::int32_t> counts, std::size_t first, std::size_t end,
                         std::int32_t threshold, std::vector<std::size_t>& chunks) {
    std::size_t index = first;
#ifdef KORVANE_SSE2
    const __m128i level = _mm_set1_epi32(threshold);
    for (; index + scan_chunk <= end; index += scan_chunk)
        if (any_above_16(counts.data() + index, level)) chunks.push_back(index);
#endif
    for (; index < end; index += scan_chunk)
        if (any_above(counts.data() + index, std::min(scan_chunk, end - index), threshold)) chunks.push_back(index);
}

}  // namespace korvane
