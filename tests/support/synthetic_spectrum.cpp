#include "support/synthetic_spectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace korvane {

namespace {

/// First and last sample of a spectrum from `before` to `after` samples about a place.
std::pair<std::ptrdiff_t, std::ptrdiff_t> samples_about(double place, double before, double after, std::size_t size) {
    return {std::max<std::ptrdiff_t>(0, static_cast<std::ptrdiff_t>(std::ceil(place - before))),
            std::min(static_cast<std::ptrdiff_t>(std::floor(place + after)), static_cast<std::ptrdiff_t>(size) - 1)};
}

class Draws {
public:
    explicit Draws(std::uint64_t seed) : engine_(seed) {}
    double uniform(double low, double high) {
        return low + (high - low) * std::generate_canonical<double, 53>(engine_);
    }
    double normal() { return normal_(engine_); }
    int poisson(double mean) { return mean > 0 ? std::poisson_distribution<int>(mean)(engine_) : 0; }
    double exponential(double mean) { return -mean * std::log1p(-uniform(0, 1)); }
    /// Mean 1, relative standard deviation `spread`.
    double pulse_height(double spread) {
        return std::gamma_distribution<double>(1 / (spread * spread), spread * spread)(engine_);
    }

private:
    std::mt19937_64 engine_;
    std::normal_distribution<double> normal_;
};

void add_counted_ions(const SyntheticSet& set, const TruePeak& peak, double start_time_ns, Draws& draws,
                      std::vector<double>& signal) {
    const double sigma = set.sigma_ns(peak.time_ns) / set.interval_ns;
    const double place = (peak.time_ns - start_time_ns) / set.interval_ns;
    const auto [first, last] = samples_about(place, 7 * sigma, 22 * sigma, signal.size());
    for (auto i = first; i <= last; ++i) {
        const double sample_ns = start_time_ns + static_cast<double>(i) * set.interval_ns;
        signal[i] += set.counts_per_ion * draws.poisson(expected_counts(set, peak, sample_ns) / set.counts_per_ion);
    }
}

void add_pulses(const SyntheticSet& set, const TruePeak& peak, double start_time_ns, Draws& draws,
                std::vector<double>& signal) {
    const ArrivalSpread arrival = arrival_spread(set, peak.time_ns);
    const double pulse_sigma = set.detector_fwhm_ns / fwhm_per_sigma / set.interval_ns;
    const int ions = draws.poisson(peak.ions);
    for (int ion = 0; ion < ions; ++ion) {
        double time_ns = peak.time_ns + arrival.sigma_ns * draws.normal();
        if (draws.uniform(0, 1) < set.tail_fraction) time_ns += draws.exponential(arrival.tail_ns);
        const double height = set.counts_per_ion * draws.pulse_height(set.pulse_height_spread) / pulse_sigma;
        const double place = (time_ns - start_time_ns) / set.interval_ns;
        const auto [first, last] = samples_about(place, 6 * pulse_sigma, 6 * pulse_sigma, signal.size());
        for (auto i = first; i <= last; ++i)
            signal[i] += height * normal_density((static_cast<double>(i) - place) / pulse_sigma);
    }
}

double time_of_mass(double mass) {
    return 20 + std::sqrt(mass) / 4.5e-4;
}

std::vector<TruePeak> draw_peaks(const SyntheticSet& set, Draws& draws) {
    std::vector<TruePeak> peaks;
    for (const int cluster_size : {1, 2, 3, 5, 8, 12, 16, 20, 25, 30}) {
        constexpr double calibrant_ions[] = {10000, 3000, 1000, 300, 100};
        const double mass = cluster_size * 149.89424228 + 22.98922070;
        peaks.push_back({time_of_mass(mass), calibrant_ions[peaks.size() % 5], true});
    }
    while (peaks.size() < 10 + static_cast<std::size_t>(set.background_ions)) {
        const double mass = 60 * std::pow(3000.0 / 60.0, draws.uniform(0, 1));
        const TruePeak drawn{time_of_mass(mass), draws.uniform(2, 300), false};
        const bool far_from_all = std::ranges::all_of(peaks, [&](const TruePeak& peak) {
            const double sigma_ns = set.sigma_ns(std::max(peak.time_ns, drawn.time_ns));
            return std::abs(peak.time_ns - drawn.time_ns) >= 12 * sigma_ns;
        });
        if (far_from_all) peaks.push_back(drawn);
    }
    std::ranges::sort(peaks, {}, &TruePeak::time_ns);
    return peaks;
}

SyntheticSpectrum draw_spectrum(const SyntheticSet& set, std::vector<TruePeak> peaks, double start_time_ns,
                                Draws& draws) {
    std::vector<double> signal(set.samples, 0.0);
    const auto add = set.statistics == IonStatistics::Pulse ? add_pulses : add_counted_ions;
    for (const auto& peak : peaks) add(set, peak, start_time_ns, draws, signal);
    const double phase = draws.uniform(0, 2 * std::numbers::pi);
    const double turn = 3 * std::numbers::pi / static_cast<double>(set.samples);
    std::vector<std::int32_t> counts(set.samples);
    for (std::size_t i = 0; i < set.samples; ++i) {
        const double drift = 1 + set.baseline_drift * std::sin(phase + turn * static_cast<double>(i));
        const double value = signal[i] + set.baseline_counts * drift + set.noise_counts * draws.normal();
        counts[i] = static_cast<std::int32_t>(std::lround(std::clamp(value, 0.0, set.saturation_counts)));
    }
    return {std::move(counts), start_time_ns, set.interval_ns, std::move(peaks)};
}

/// Between a place where it holds and one where it does not.
template <class Condition>
double last_where(double holds, double fails, Condition condition) {
    for (int i = 0; i < 60; ++i) {
        const double middle = 0.5 * (holds + fails);
        (condition(middle) ? holds : fails) = middle;
    }
    return holds;
}

}  // namespace

double normal_density(double x) {
    return std::exp(-0.5 * x * x) / std::sqrt(2 * std::numbers::pi);
}

double arrival_density(const SyntheticSet& set, double sigma_ns, double tail_ns, double distance_ns) {
    const double x = distance_ns / sigma_ns;
    const double rate = sigma_ns / tail_ns;
    const double late = (rate - x) / std::numbers::sqrt2;
    // Far left of the peak exp() overflows where erfc() underflows; the product is nothing there.
    const double delayed = late > 20 ? 0 : 0.5 * rate * std::exp(0.5 * rate * rate - rate * x) * std::erfc(late);
    return ((1 - set.tail_fraction) * normal_density(x) + set.tail_fraction * delayed) / sigma_ns;
}

ArrivalSpread arrival_spread(const SyntheticSet& set, double time_ns) {
    const double analyser_sigma = time_ns / (2 * set.resolution_limit) / fwhm_per_sigma;
    const double sigma = set.statistics == IonStatistics::Pulse ? analyser_sigma : set.sigma_ns(time_ns);
    return {sigma, set.tail_sigmas * sigma};
}

double SyntheticSet::fwhm_ns(double time_ns) const {
    return std::hypot(time_ns / (2 * resolution_limit), detector_fwhm_ns);
}

const std::array<SyntheticSet, 4>& accuracy_sets() {
    static const std::array<SyntheticSet, 4> sets = [] {
        const SyntheticSet slow{.name = "150k"};
        const SyntheticSet medium{"300k", 300000, 0.5, 25000, 1.2, 40};
        SyntheticSet fast{"600k", 600000, 0.25, 40000, 0.9, 64};
        SyntheticSet pulses = fast;
        pulses.name = "600k-pulse";
        pulses.statistics = IonStatistics::Pulse;
        return std::array{slow, medium, fast, pulses};
    }();
    return sets;
}

SyntheticSpectrum synthesize(const SyntheticSet& set, std::uint64_t seed) {
    Draws draws(seed);
    const double start_time_ns = 10000 + set.interval_ns * draws.uniform(0, 1);
    const auto peaks = draw_peaks(set, draws);
    return draw_spectrum(set, peaks, start_time_ns, draws);
}

SyntheticSpectrum synthesize_peaks(const SyntheticSet& set, const std::vector<TruePeak>& peaks, double start_time_ns,
                                   std::uint64_t seed) {
    Draws draws(seed);
    return draw_spectrum(set, peaks, start_time_ns, draws);
}

double expected_counts(const SyntheticSet& set, const TruePeak& peak, double sample_time_ns) {
    const double density = arrival_density(set, set.sigma_ns(peak.time_ns), arrival_spread(set, peak.time_ns).tail_ns,
                                           sample_time_ns - peak.time_ns);
    return peak.ions * set.counts_per_ion * set.interval_ns * density;
}

TrueShape true_shape(const SyntheticSet& set, const TruePeak& peak) {
    auto counts = [&](double time_ns) { return expected_counts(set, peak, time_ns); };
    const double sigma_ns = set.sigma_ns(peak.time_ns);
    const double top_ns = last_where(peak.time_ns - sigma_ns, peak.time_ns + sigma_ns, [&](double time_ns) {
        return counts(time_ns + 1e-3 * sigma_ns) > counts(time_ns - 1e-3 * sigma_ns);
    });
    auto above_half = [&](double time_ns) { return counts(time_ns) > 0.5 * counts(top_ns); };
    return {
        last_where(top_ns, top_ns + 4 * sigma_ns, above_half) - last_where(top_ns, top_ns - 4 * sigma_ns, above_half),
        counts(top_ns)};
}

}  // namespace korvane
