#include "support/synthetic_spectrum.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace korvane {

double normal_density(double x) {
    return std::exp(-0.5 * x * x) / std::sqrt(2 * std::numbers::pi);
}

double delayed_density(double x, double tail) {
    const double rate = 1 / tail;
    const double erfc_argument = (rate - x) / std::numbers::sqrt2;
    // Far left of the peak exp() overflows where erfc() underflows; the product is nothing there.
    if (erfc_argument > 20) return 0;
    return 0.5 * rate * std::exp(0.5 * rate * rate - rate * x) * std::erfc(erfc_argument);
}

ArrivalSpread arrival_spread(const SyntheticSet& set, double time_ns) {
    const double analyser_sigma = time_ns / (2 * set.resolution_limit) / fwhm_per_sigma;
    const double sigma = set.statistics == IonStatistics::Pulse ? analyser_sigma : set.sigma_ns(time_ns);
    return {sigma, set.tail_sigmas * sigma};
}

SampleRange samples_of_peak(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    const double sigma = set.sigma_ns(peak.time_ns);
    return {static_cast<std::ptrdiff_t>(std::ceil((peak.time_ns - 7 * sigma - start_time_ns) / set.interval_ns)),
            static_cast<std::ptrdiff_t>(std::floor((peak.time_ns + 22 * sigma - start_time_ns) / set.interval_ns))};
}

namespace {

constexpr double axis_start_ns = 10000;

/// Expected density of the signal per ns and ion.
double peak_density(const SyntheticSet& set, double peak_time_ns, double sample_time_ns) {
    const double sigma = set.sigma_ns(peak_time_ns);
    const double x = (sample_time_ns - peak_time_ns) / sigma;
    const double tail = arrival_spread(set, peak_time_ns).tail_ns / sigma;
    const double delayed = set.tail_fraction > 0 ? set.tail_fraction * delayed_density(x, tail) : 0;
    return ((1 - set.tail_fraction) * normal_density(x) + delayed) / sigma;
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
        if (spread <= 0) return 1;
        return std::gamma_distribution<double>(1 / (spread * spread), spread * spread)(engine_);
    }

private:
    std::mt19937_64 engine_;
    std::normal_distribution<double> normal_;
};

void add_counted_ions(const SyntheticSet& set, const TruePeak& peak, double start_time_ns, Draws& draws,
                      std::vector<double>& signal) {
    const auto [first, last] = samples_of_peak(set, peak, start_time_ns);
    const auto end = static_cast<std::ptrdiff_t>(signal.size());
    for (auto i = std::max<std::ptrdiff_t>(0, first); i <= std::min(last, end - 1); ++i) {
        const double sample_ns = start_time_ns + static_cast<double>(i) * set.interval_ns;
        const double mean = expected_counts(set, peak, sample_ns) / set.counts_per_ion;
        signal[static_cast<std::size_t>(i)] += set.counts_per_ion * draws.poisson(mean);
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
        const double position = (time_ns - start_time_ns) / set.interval_ns;
        const auto first = static_cast<std::ptrdiff_t>(std::ceil(position - 6 * pulse_sigma));
        const auto last = static_cast<std::ptrdiff_t>(std::floor(position + 6 * pulse_sigma));
        const auto end = static_cast<std::ptrdiff_t>(signal.size());
        for (auto i = std::max<std::ptrdiff_t>(0, first); i <= std::min(last, end - 1); ++i)
            signal[static_cast<std::size_t>(i)] +=
                height * normal_density((static_cast<double>(i) - position) / pulse_sigma);
    }
}

bool far_from_all(const SyntheticSet& set, double time_ns, const std::vector<TruePeak>& peaks) {
    return std::all_of(peaks.begin(), peaks.end(), [&](const TruePeak& peak) {
        return std::abs(peak.time_ns - time_ns) >= 12 * set.sigma_ns(std::max(peak.time_ns, time_ns));
    });
}

std::vector<TruePeak> draw_peaks(const SyntheticSet& set, Draws& draws) {
    constexpr std::array<int, 10> cluster_sizes{1, 2, 3, 5, 8, 12, 16, 20, 25, 30};
    constexpr std::array<double, 5> calibrant_ions{10000, 3000, 1000, 300, 100};
    std::vector<TruePeak> peaks;
    for (std::size_t i = 0; i < cluster_sizes.size(); ++i) {
        const double mass = cluster_sizes[i] * 149.89424228 + 22.98922070;
        peaks.push_back({synthetic_time_ns(mass), calibrant_ions[i % calibrant_ions.size()], true});
    }
    for (int found = 0; found < set.background_ions;) {
        const double mass = 60 * std::pow(3000.0 / 60.0, draws.uniform(0, 1));
        const TruePeak peak{synthetic_time_ns(mass), draws.uniform(2, 300), false};
        if (!far_from_all(set, peak.time_ns, peaks)) continue;
        peaks.push_back(peak);
        ++found;
    }
    std::sort(peaks.begin(), peaks.end(), [](const TruePeak& a, const TruePeak& b) { return a.time_ns < b.time_ns; });
    return peaks;
}

void fill_counts(const SyntheticSet& set, Draws& draws, SyntheticSpectrum& spectrum) {
    std::vector<double> signal(set.samples, 0.0);
    for (const auto& peak : spectrum.peaks) {
        if (set.statistics == IonStatistics::Pulse)
            add_pulses(set, peak, spectrum.start_time_ns, draws, signal);
        else
            add_counted_ions(set, peak, spectrum.start_time_ns, draws, signal);
    }
    const double phase = draws.uniform(0, 2 * std::numbers::pi);
    const double turn = 3 * std::numbers::pi / static_cast<double>(set.samples);
    spectrum.counts.resize(set.samples);
    for (std::size_t i = 0; i < set.samples; ++i) {
        const double drift = 1 + set.baseline_drift * std::sin(phase + turn * static_cast<double>(i));
        const double value = signal[i] + set.baseline_counts * drift + set.noise_counts * draws.normal();
        spectrum.counts[i] = static_cast<std::int32_t>(std::lround(std::clamp(value, 0.0, set.saturation_counts)));
    }
}

double top_time_ns(const SyntheticSet& set, const TruePeak& peak) {
    double low = peak.time_ns - set.sigma_ns(peak.time_ns);
    double high = peak.time_ns + set.sigma_ns(peak.time_ns);
    while (high - low > 1e-9 * set.sigma_ns(peak.time_ns)) {
        const double left = low + (high - low) / 3;
        const double right = high - (high - low) / 3;
        (peak_density(set, peak.time_ns, left) < peak_density(set, peak.time_ns, right) ? low : high) =
            peak_density(set, peak.time_ns, left) < peak_density(set, peak.time_ns, right) ? left : right;
    }
    return 0.5 * (low + high);
}

double half_height_ns(const SyntheticSet& set, const TruePeak& peak, double inside_ns, double outside_ns) {
    const double half = 0.5 * peak_density(set, peak.time_ns, inside_ns);
    for (int i = 0; i < 60; ++i) {
        const double middle = 0.5 * (inside_ns + outside_ns);
        (peak_density(set, peak.time_ns, middle) > half ? inside_ns : outside_ns) = middle;
    }
    return inside_ns;
}

}  // namespace

double SyntheticSet::fwhm_ns(double time_ns) const {
    return std::hypot(time_ns / (2 * resolution_limit), detector_fwhm_ns);
}

double SyntheticSet::sigma_ns(double time_ns) const {
    return fwhm_ns(time_ns) / fwhm_per_sigma;
}

const std::array<SyntheticSet, 4>& accuracy_sets() {
    static const std::array<SyntheticSet, 4> sets = [] {
        std::array<SyntheticSet, 4> made;
        made[0].name = "150k";
        made[1] = made[0];
        made[1].name = "300k";
        made[1].samples = 300000;
        made[1].interval_ns = 0.5;
        made[1].resolution_limit = 25000;
        made[1].detector_fwhm_ns = 1.2;
        made[1].counts_per_ion = 40;
        made[2] = made[0];
        made[2].name = "600k";
        made[2].samples = 600000;
        made[2].interval_ns = 0.25;
        made[2].resolution_limit = 40000;
        made[2].detector_fwhm_ns = 0.9;
        made[2].counts_per_ion = 64;
        made[3] = made[2];
        made[3].name = "600k-pulse";
        made[3].statistics = IonStatistics::Pulse;
        return made;
    }();
    return sets;
}

double synthetic_time_ns(double mass) {
    return 20 + std::sqrt(mass) / 4.5e-4;
}

double synthetic_mass(double time_ns) {
    return std::pow(4.5e-4 * (time_ns - 20), 2);
}

SyntheticSpectrum synthesize(const SyntheticSet& set, std::uint64_t seed) {
    Draws draws(seed);
    SyntheticSpectrum spectrum;
    spectrum.interval_ns = set.interval_ns;
    spectrum.start_time_ns = axis_start_ns + set.interval_ns * draws.uniform(0, 1);
    spectrum.peaks = draw_peaks(set, draws);
    fill_counts(set, draws, spectrum);
    return spectrum;
}

SyntheticSpectrum synthesize_peaks(const SyntheticSet& set, const std::vector<TruePeak>& peaks, double start_time_ns,
                                   std::uint64_t seed) {
    Draws draws(seed);
    SyntheticSpectrum spectrum;
    spectrum.interval_ns = set.interval_ns;
    spectrum.start_time_ns = start_time_ns;
    spectrum.peaks = peaks;
    fill_counts(set, draws, spectrum);
    return spectrum;
}

double expected_counts(const SyntheticSet& set, const TruePeak& peak, double sample_time_ns) {
    return peak.ions * set.counts_per_ion * set.interval_ns * peak_density(set, peak.time_ns, sample_time_ns);
}

double true_height_counts(const SyntheticSet& set, const TruePeak& peak) {
    return expected_counts(set, peak, top_time_ns(set, peak));
}

double true_fwhm_ns(const SyntheticSet& set, const TruePeak& peak) {
    const double top_ns = top_time_ns(set, peak);
    const double reach_ns = 4 * set.sigma_ns(peak.time_ns);
    return half_height_ns(set, peak, top_ns, top_ns + reach_ns) - half_height_ns(set, peak, top_ns, top_ns - reach_ns);
}

}  // namespace korvane
