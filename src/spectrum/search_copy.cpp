#include "spectrum/search_copy.h"

#include <algorithm>

#include "platform/automation_arithmetic.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

namespace korvane {

namespace {

/// The same as `to_int32` of every sample, by vector instructions where the target has them.
void convert(std::span<const double> samples, std::int32_t* counts) {
    std::size_t converted = 0;
#if defined(__SSE2__) || defined(_M_X64)
    constexpr std::size_t block = 4;
    const std::size_t in_blocks = samples.size() - samples.size() % block;
    const __m128i lowest = _mm_set1_epi32(INT32_MIN);
    __m128i met_the_lowest = _mm_setzero_si128();
    {
        StandardRounding rounding;
        for (std::size_t i = 0; i < in_blocks; i += block) {
            const __m128i low = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i]));
            const __m128i high = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i + 2]));
            const __m128i four = _mm_unpacklo_epi64(low, high);
            met_the_lowest = _mm_or_si128(met_the_lowest, _mm_cmpeq_epi32(four, lowest));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(counts + i), four);
        }
    }
    // What no integer can hold became the lowest one, too; the careful conversion tells them apart.
    if (_mm_movemask_epi8(met_the_lowest) == 0) converted = in_blocks;
#endif
    std::ranges::transform(samples.subspan(converted), counts + converted,
                           [](double sample) { return to_int32(sample); });
}

}  // namespace

void SearchCopy::take(const VariantArray<double>& samples) {
    const std::int32_t lower_bound = samples.lower_bound();
    if (source_.storage() == samples.storage() && source_.lower_bound() == lower_bound) return;
    source_ = {};
    (void)samples.at(0);
    searched_ = samples.elements().subspan(static_cast<std::size_t>(-std::int64_t{lower_bound}));
    counts_.resize(searched_.size());
    convert(searched_, counts_.data());
    source_ = samples;
}

double SearchCopy::maximum() const {
    return std::ranges::max(searched_);
}

}  // namespace korvane
