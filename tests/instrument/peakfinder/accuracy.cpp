#include "accuracy.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "support/spread.h"

namespace korvane {

namespace {

/// Least variances of any unbiased estimate on a sampling grid.
struct InformationBounds {
    /// 1 / sum of lambda'^2 J(lambda) with J the information of one Poisson + normal sample, or 1 / (mu' C^-1 mu') with
    /// C the covariance of overlapping pulses.
    double position_variance_ns2 = 0;
    /// The same for the logarithm of the width, the number of ions being unknown; 1 / (2 n) for pulses.
    double relative_width_variance = 0;
};

/// Of one true peak over many spectra.
struct PeakScore {
    double ions = 0;
    Spread position_ns, relative_width, relative_area, stated_variance;
    InformationBounds bounds;
    int missed = 0;

    void add(const SyntheticSet& set, const TruePeak& truth, const MeasuredPeak& found) {
        position_ns.add(found.record.pkCentroid - truth.time_ns);
        relative_width.add(found.record.pkWidth / true_shape(set, truth).fwhm_ns);
        relative_area.add(found.record.pkArea / (truth.ions * set.counts_per_ion));
        stated_variance.add(found.uncertainty.centroid * found.uncertainty.centroid);
    }
    double position_over_bound() const { return position_ns.deviation() / std::sqrt(bounds.position_variance_ns2); }
    /// Root mean square of the stated standard errors of the position over its spread.
    double stated_over_observed() const { return std::sqrt(stated_variance.mean()) / position_ns.deviation(); }
};

/// Information about lambda of one sample Poisson(lambda) + N(0, noise), in ions.
double sample_information(double lambda, double noise) {
    if (lambda > 60) return 1 / (lambda + noise * noise);  // as good as normal
    const int most = static_cast<int>(std::ceil(lambda + 9 * std::sqrt(lambda) + 9));
    std::vector<double> probability{0};  // of one ion less
    for (int k = 0; k <= most; ++k)
        probability.push_back(std::exp(k * std::log(lambda) - lambda - std::lgamma(k + 1.0)));
    double information = 0;
    const double step = noise / 6;
    for (double y = -6 * noise; y < most + 6 * noise; y += step) {
        double density = 0;
        double slope = 0;
        const int first = std::max(0, static_cast<int>(std::ceil(y - 7 * noise)));
        const int last = std::min(most, static_cast<int>(std::floor(y + 7 * noise)));
        for (int k = first; k <= last; ++k) {
            const double weight = normal_density((y - k) / noise) / noise;
            density += probability[k + 1] * weight;
            slope += (probability[k] - probability[k + 1]) * weight;
        }
        if (density > 1e-300) information += slope * slope / density * step;
    }
    return information;
}

/// Change of the expected counts of a sample when the peak moves by one ns.
double position_slope(const SyntheticSet& set, const TruePeak& peak, double sample_ns) {
    const double step = 1e-3 * set.sigma_ns(peak.time_ns);
    return (expected_counts(set, peak, sample_ns - step) - expected_counts(set, peak, sample_ns + step)) / (2 * step);
}

/// Covariance of the counts of two samples at the given distances from the peak: integral over the arrival density of
/// the product of two pulses, which is a pulse of the distance times the arrival spread widened by half a pulse.
double pulse_covariance(const SyntheticSet& set, const TruePeak& peak, double first_ns, double second_ns) {
    const ArrivalSpread arrival = arrival_spread(set, peak.time_ns);
    const double pair = set.detector_fwhm_ns / fwhm_per_sigma * std::numbers::sqrt2;
    const double widened = std::hypot(arrival.sigma_ns, 0.5 * pair);
    const double middle_ns = 0.5 * (first_ns + second_ns) - peak.time_ns;
    const double counts = set.counts_per_ion * set.interval_ns;
    const double height_square = 1 + set.pulse_height_spread * set.pulse_height_spread;
    return peak.ions * counts * counts * height_square * arrival_density(set, widened, arrival.tail_ns, middle_ns) *
           normal_density((first_ns - second_ns) / pair) / pair;
}

InformationBounds pulse_bounds(const SyntheticSet& set, const TruePeak& peak, const std::vector<double>& times_ns) {
    const auto size = static_cast<Eigen::Index>(times_ns.size());
    Eigen::MatrixXd covariance(size, size);
    Eigen::VectorXd slope(size);
    for (Eigen::Index row = 0; row < size; ++row) {
        slope[row] = position_slope(set, peak, times_ns[row]);
        for (Eigen::Index column = 0; column < size; ++column)
            covariance(row, column) = pulse_covariance(set, peak, times_ns[row], times_ns[column]);
        covariance(row, row) += set.noise_counts * set.noise_counts + 1.0 / 12;
    }
    return {1 / slope.dot(covariance.llt().solve(slope)), 1 / (2 * peak.ions)};
}

/// Times of the samples that hold all of a peak; those before or after the spectrum too.
std::vector<double> sample_times_of_peak(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    const double sigma_ns = set.sigma_ns(peak.time_ns);
    const double before = std::ceil((peak.time_ns - 7 * sigma_ns - start_time_ns) / set.interval_ns);
    std::vector<double> times_ns;
    for (double time_ns = start_time_ns + before * set.interval_ns; time_ns <= peak.time_ns + 22 * sigma_ns;
         time_ns += set.interval_ns)
        times_ns.push_back(time_ns);
    return times_ns;
}

InformationBounds information_bounds(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    const auto times_ns = sample_times_of_peak(set, peak, start_time_ns);
    if (set.statistics == IonStatistics::Pulse) return pulse_bounds(set, peak, times_ns);
    double position = 0, width = 0, ions = 0, width_and_ions = 0;
    for (const double sample_ns : times_ns) {
        const double counts = expected_counts(set, peak, sample_ns);
        const double lambda = counts / set.counts_per_ion;
        if (lambda < 1e-9) continue;
        const double weight =
            sample_information(lambda, set.noise_counts / set.counts_per_ion) / std::pow(set.counts_per_ion, 2);
        const double slope = position_slope(set, peak, sample_ns);
        // When the ions spread wider by a factor e.
        const double widening = (sample_ns - peak.time_ns) * slope - counts;
        position += weight * slope * slope;
        width += weight * widening * widening;
        ions += weight * counts * counts;
        width_and_ions += weight * widening * counts;
    }
    return {1 / position, 1 / (width - width_and_ions * width_and_ions / ions)};
}

/// The search of one kind over many spectra.
struct Judge {
    const SyntheticSet& set;
    PeakFinderOptions options;
    bool windows = false;
    std::vector<PeakScore> calibrants{10};
    double spectra = 0, unmatched = 0, visible = 0, visible_found = 0;

    std::vector<MeasuredPeak> search(const SyntheticSpectrum& spectrum) const {
        if (!windows) return find_peaks(spectrum, options);
        std::vector<MeasuredPeak> all;
        for (const auto& peak : spectrum.peaks) {
            if (!peak.calibrant) continue;
            const auto found = find_peaks(spectrum, options, {0.999 * peak.time_ns, 1.001 * peak.time_ns});
            all.insert(all.end(), found.begin(), found.end());
        }
        return all;
    }

    void add(const SyntheticSpectrum& spectrum) {
        const auto peaks = search(spectrum);
        std::vector<bool> is_true(peaks.size());
        auto calibrant = calibrants.begin();
        for (const auto& truth : spectrum.peaks) {
            auto distance = [&](const MeasuredPeak& peak) { return std::abs(peak.record.pkCentroid - truth.time_ns); };
            const auto nearest = std::ranges::min_element(peaks, {}, distance);
            const bool hit = nearest != peaks.end() && distance(*nearest) < set.fwhm_ns(truth.time_ns);
            if (hit) is_true[nearest - peaks.begin()] = true;
            if (!truth.calibrant) {
                const bool is_visible = true_shape(set, truth).height_counts > 10 * set.noise_counts;
                visible += is_visible;
                visible_found += is_visible && hit;
                continue;
            }
            // The bound hardly depends on the sub-sample phase.
            if (spectra == 0) calibrant->bounds = information_bounds(set, truth, spectrum.start_time_ns);
            calibrant->ions = truth.ions;
            calibrant->missed += !hit;
            if (hit) calibrant->add(set, truth, *nearest);
            ++calibrant;
        }
        spectra += 1;
        unmatched += static_cast<double>(std::ranges::count(is_true, false));
    }

    Figures result() const {
        double logarithms = 0, inverse_ratios = 0, strong = 0, worst_strong = 0, worst_weak = 0;
        int missed = 0;
        Figures qualities(6, 0.0);
        auto add = [&](std::size_t first, const Spread& relative, double bound) {
            const double over_bound = relative.deviation() / bound;
            qualities[first] += over_bound * over_bound;
            qualities[first + 1] = std::max(qualities[first + 1], over_bound);
            qualities[first + 2] = std::max(qualities[first + 2], std::abs(relative.mean() - 1));
        };
        for (const auto& calibrant : calibrants) {
            const double position = calibrant.position_over_bound();
            logarithms += std::log(position);
            inverse_ratios += std::pow(calibrant.stated_over_observed(), -2);
            missed += calibrant.missed;
            if (calibrant.ions <= 100) worst_weak = std::max(worst_weak, position);
            if (calibrant.ions < 1000) continue;
            worst_strong = std::max(worst_strong, position);
            add(0, calibrant.relative_width, std::sqrt(calibrant.bounds.relative_width_variance));
            add(3, calibrant.relative_area, 1 / std::sqrt(calibrant.ions));
            strong += 1;
        }
        for (const std::size_t square : {0, 3}) qualities[square] = std::sqrt(qualities[square] / strong);
        const auto number = static_cast<double>(calibrants.size());
        Figures all{std::exp(logarithms / number),
                    worst_strong,
                    worst_weak,
                    static_cast<double>(missed),
                    windows ? 0 : unmatched / spectra,
                    windows ? 1 : visible_found / visible};
        all.insert(all.end(), qualities.begin(), qualities.end());
        all.push_back(1 / std::sqrt(inverse_ratios / number));
        return all;
    }
};

}  // namespace

std::vector<MeasuredPeak> find_peaks(PeakFinder& finder, const SyntheticSpectrum& spectrum,
                                     const SearchWindow& window) {
    finder.set_sampling_interval_ns(spectrum.interval_ns);
    finder.set_minimum_samples(3);
    finder.set_baseline_removal(1);
    finder.set_search_start_ns(window.start_ns);
    finder.set_search_end_ns(window.end_ns);
    finder.set_samples(spectrum.counts);
    const PeakListObject list = finder.run(spectrum.start_time_ns);
    std::vector<MeasuredPeak> found;
    for (std::int32_t i = 0; i < list->count(); ++i)
        found.push_back({list->GetPeakAttributeInfo(i, true), list->uncertainty(i).value(), list->quality(i).value()});
    return found;
}

std::vector<MeasuredPeak> find_peaks(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options,
                                     const SearchWindow& window) {
    return find_peaks(*make_peak_finder(options), spectrum, window);
}

PeakFinderOptions known_of(const SyntheticSet& set) {
    PeakFinderOptions options;
    options.width = WidthModel{set.resolution_limit, set.detector_fwhm_ns};
    options.counts_per_ion = set.counts_per_ion;
    options.tail_fraction = set.tail_fraction;
    options.saturation_counts = set.saturation_counts;
    if (set.statistics == IonStatistics::Pulse) {
        options.ion_pulse_fwhm_ns = set.detector_fwhm_ns;
        options.ion_height_spread = set.pulse_height_spread;
    }
    return options;
}

std::array<Figures, 3> accuracy_of(const SyntheticSet& set, int spectra) {
    std::array<Judge, 3> judges{Judge{set, known_of(set)}, Judge{set, {}}, Judge{set, {}, true}};
    for (int seed = 1; seed <= spectra; ++seed) {
        const SyntheticSpectrum spectrum = synthesize(set, static_cast<std::uint64_t>(seed));
        for (auto& judge : judges) judge.add(spectrum);
    }
    return {judges[0].result(), judges[1].result(), judges[2].result()};
}

}  // namespace korvane
