// The peak finder alone, on spectra of known truth, against one pass that converts the same samples to integers.
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <limits>
#include <vector>

#include "bench/ratio.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "support/synthetic_spectrum.h"

namespace korvane::bench {
namespace {

struct Subject {
    explicit Subject(const SyntheticSet& from) : set(from), spectrum(synthesize(from, 1)) {
        known.width = WidthModel{set.resolution_limit, set.detector_fwhm_ns};
        known.counts_per_ion = set.counts_per_ion;
        known.tail_fraction = set.tail_fraction;
        known.saturation_counts = set.saturation_counts;
    }

    std::int32_t find(const PeakFinderOptions& options, double start_ns, double end_ns) const {
        const auto finder = make_peak_finder(options);
        finder->set_sampling_interval_ns(spectrum.interval_ns);
        finder->set_minimum_samples(3);
        finder->set_baseline_removal(1);
        finder->set_search_start_ns(start_ns);
        finder->set_search_end_ns(end_ns);
        finder->set_samples(spectrum.counts);
        return finder->run(spectrum.start_time_ns)->count();
    }

    SyntheticSet set;
    SyntheticSpectrum spectrum;
    PeakFinderOptions known;
};

const Subject& subject_150k() {
    static const Subject subject(accuracy_sets()[0]);
    return subject;
}

const Subject& subject_600k() {
    static const Subject subject(accuracy_sets()[2]);
    return subject;
}

void convert(benchmark::State& state, const Subject& subject) {
    const std::vector<double> samples(subject.spectrum.counts.begin(), subject.spectrum.counts.end());
    std::vector<std::int32_t> counts(samples.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i + 4 <= samples.size(); i += 4) {
            const __m128i low = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i]));
            const __m128i high = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i + 2]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(&counts[i]), _mm_unpacklo_epi64(low, high));
        }
        benchmark::ClobberMemory();
    }
}

void whole(benchmark::State& state, const Subject& subject, const PeakFinderOptions& options) {
    constexpr double far_ns = std::numeric_limits<double>::max();
    for (auto _ : state) benchmark::DoNotOptimize(subject.find(options, 0, far_ns));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(subject.set.samples));
}

void windows(benchmark::State& state, const PeakFinderOptions& options) {
    const Subject& subject = subject_600k();
    for (auto _ : state)
        for (const auto& peak : subject.spectrum.peaks)
            if (peak.calibrant)
                benchmark::DoNotOptimize(subject.find(options, 0.999 * peak.time_ns, 1.001 * peak.time_ns));
}

void peaks_convert_150k(benchmark::State& state) {
    convert(state, subject_150k());
}
void peaks_convert_600k(benchmark::State& state) {
    convert(state, subject_600k());
}
void peaks_whole_150k(benchmark::State& state) {
    whole(state, subject_150k(), {});
}
void peaks_whole_150k_knowing(benchmark::State& state) {
    whole(state, subject_150k(), subject_150k().known);
}
void peaks_whole_600k(benchmark::State& state) {
    whole(state, subject_600k(), {});
}
void peaks_whole_600k_knowing(benchmark::State& state) {
    whole(state, subject_600k(), subject_600k().known);
}
void peaks_ten_windows(benchmark::State& state) {
    windows(state, {});
}
void peaks_ten_windows_knowing(benchmark::State& state) {
    windows(state, subject_600k().known);
}
BENCHMARK(peaks_convert_150k);
BENCHMARK(peaks_convert_600k);
BENCHMARK(peaks_whole_150k);
BENCHMARK(peaks_whole_150k_knowing);
BENCHMARK(peaks_whole_600k);
BENCHMARK(peaks_whole_600k_knowing);
BENCHMARK(peaks_ten_windows);
BENCHMARK(peaks_ten_windows_knowing);

const RatioRow ten_windows({"finding ten calibrant peaks of 600,000 samples / one conversion pass", "peaks_ten_windows",
                            "peaks_convert_600k", 0.8});

}  // namespace
}  // namespace korvane::bench
