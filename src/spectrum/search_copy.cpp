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

namespace {

/// Converts blocks of eight samples; what no integer can hold becomes the lowest one.
class BlockConverter {
public:
    static constexpr std::size_t block = 8;

    explicit BlockConverter(double first) : low_max_(_mm_set1_pd(first)), high_max_(low_max_) {}

    void take(const double* samples, std::int32_t* counts) {
        take_half(samples, counts);
        take_half(samples + block / 2, counts + block / 2);
    }

    bool met_the_lowest() const { return _mm_movemask_epi8(lowest_) != 0; }
    double maximum() const {
        alignas(16) double both[2];
        _mm_store_pd(both, _mm_max_pd(low_max_, high_max_));
        return std::max(both[0], both[1]);
    }

private:
    void take_half(const double* samples, std::int32_t* counts) {
        const __m128d low = _mm_loadu_pd(samples);
        const __m128d high = _mm_loadu_pd(samples + 2);
        low_max_ = _mm_max_pd(low_max_, low);
        high_max_ = _mm_max_pd(high_max_, high);
        const __m128i four = _mm_unpacklo_epi64(_mm_cvtpd_epi32(low), _mm_cvtpd_epi32(high));
        lowest_ = _mm_or_si128(lowest_, _mm_cmpeq_epi32(four, _mm_set1_epi32(INT32_MIN)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(counts), four);
    }

    __m128d low_max_;
    __m128d high_max_;
    __m128i lowest_ = _mm_setzero_si128();
};

}  // namespace

double convert(std::span<const double> samples, std::int32_t* counts) {
    const std::size_t in_blocks = samples.size() - samples.size() % BlockConverter::block;
    BlockConverter converter(samples[0]);
    {
        StandardRounding rounding;
        for (std::size_t i = 0; i < in_blocks; i += BlockConverter::block) converter.take(&samples[i], counts + i);
    }
    // The lowest integer also stands for overflow; the careful conversion tells them apart.
    if (converter.met_the_lowest()) return convert_portably(samples, counts);
    if (in_blocks == samples.size()) return converter.maximum();
    return std::max(converter.maximum(), convert_portably(samples.subspan(in_blocks), counts + in_blocks));
}

#else

double convert(std::span<const double> samples, std::int32_t* counts) {
    return convert_portably(samples, counts);
}

#endif

}  // namespace conversion

}  // namespace korvane
