#include "spectrum/search_copy.h"

#include <algorithm>

#include "platform/automation_arithmetic.h"

#if defined(__SSE2__) || defined(_M_X64)
#define KORVANE_SSE2
#include <emmintrin.h>
#endif

namespace korvane {

void SearchCopy::take(const VariantArray<double>& samples) {
    const std::int32_t lower_bound = samples.lower_bound();
    if (source_ && source_ == samples.storage() && source_lower_bound_ == lower_bound) return;
    source_.reset();
    (void)samples.at(0);
    const auto searched = samples.elements().subspan(static_cast<std::size_t>(-std::int64_t{lower_bound}));
    counts_.resize(searched.size());
    maximum_ = conversion::convert(searched, counts_.data());
    source_ = samples.storage();
    source_lower_bound_ = lower_bound;
}

namespace conversion {

double convert_portably(std::span<const double> samples, std::int32_t* counts) {
    double maximum = samples[0];
    for (const double sample : samples) {
        *counts++ = to_int32(sample);
        if (sample > maximum) maximum = sample;
    }
    return maximum;
}

#ifdef KORVANE_SSE2

double convert(std::span<const double> samples, std::int32_t* counts) {
    constexpr std::size_t block = 4;
    const std::size_t in_blocks = samples.size() - samples.size() % block;
    __m128d low_max = _mm_set1_pd(samples[0]), high_max = low_max;
    __m128i met_the_lowest = _mm_setzero_si128();
    {
        StandardRounding rounding;
        for (std::size_t i = 0; i < in_blocks; i += block) {
            const __m128d low = _mm_loadu_pd(&samples[i]), high = _mm_loadu_pd(&samples[i + 2]);
            low_max = _mm_max_pd(low_max, low);
            high_max = _mm_max_pd(high_max, high);
            const __m128i four = _mm_unpacklo_epi64(_mm_cvtpd_epi32(low), _mm_cvtpd_epi32(high));
            met_the_lowest = _mm_or_si128(met_the_lowest, _mm_cmpeq_epi32(four, _mm_set1_epi32(INT32_MIN)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(counts + i), four);
        }
    }
    // The lowest integer also stands for what no integer can hold; the careful conversion tells them apart.
    if (_mm_movemask_epi8(met_the_lowest) != 0) return convert_portably(samples, counts);
    alignas(16) double both[2];
    _mm_store_pd(both, _mm_max_pd(low_max, high_max));
    const double maximum = std::max(both[0], both[1]);
    if (in_blocks == samples.size()) return maximum;
    return std::max(maximum, convert_portably(samples.subspan(in_blocks), counts + in_blocks));
}

#else

double convert(std::span<const double> samples, std::int32_t* counts) {
    return convert_portably(samples, counts);
}

#endif

}  // namespace conversion

}  // namespace korvane
