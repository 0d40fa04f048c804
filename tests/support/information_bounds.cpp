#include "support/information_bounds.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <deque>
#include <numbers>
#include <vector>

namespace korvane {

namespace {

/// Information about lambda of one sample Poisson(lambda) + N(0, noise), in ions.
double exact_sample_information(double lambda, double noise) {
    const int most = static_cast<int>(std::ceil(lambda + 9 * std::sqrt(lambda) + 9));
    std::vector<double> probability(static_cast<std::size_t>(most) + 1);
    for (int k = 0; k <= most; ++k)
        probability[static_cast<std::size_t>(k)] = std::exp(k * std::log(lambda) - lambda - std::lgamma(k + 1.0));
    double information = 0;
    const double step = noise / 6;
    for (double y = -6 * noise; y < most + 6 * noise; y += step) {
        double density = 0;
        double slope = 0;
        const int first = std::max(0, static_cast<int>(std::ceil(y - 7 * noise)));
        const int last = std::min(most, static_cast<int>(std::floor(y + 7 * noise)));
        for (int k = first; k <= last; ++k) {
            const double weight = normal_density((y - k) / noise) / noise;
            const double here = probability[static_cast<std::size_t>(k)];
            density += here * weight;
            slope += ((k > 0 ? probability[static_cast<std::size_t>(k) - 1] : 0) - here) * weight;
        }
        if (density > 1e-300) information += slope * slope / density * step;
    }
    return information;
}

/// The exact information, interpolated in log(lambda); beyond the table Poisson is as good as normal.
class SampleInformation {
public:
    explicit SampleInformation(double noise_ions) : noise_(noise_ions) {
        for (std::size_t i = 0; i < table_.size(); ++i)
            table_[i] = exact_sample_information(std::exp(log_first + log_step * static_cast<double>(i)), noise_);
    }
    double operator()(double lambda) const {
        const double place = (std::log(lambda) - log_first) / log_step;
        if (place <= 0) return table_.front();
        const auto index = static_cast<std::size_t>(place);
        if (index + 1 >= table_.size()) return 1 / (lambda + noise_ * noise_);
        const double part = place - static_cast<double>(index);
        return table_[index] * (1 - part) + table_[index + 1] * part;
    }
    double noise() const { return noise_; }

private:
    static constexpr double log_first = -12;
    static constexpr double log_step = 0.125;
    double noise_;
    std::array<double, 130> table_{};
};

const SampleInformation& sample_information(double noise_ions) {
    thread_local std::deque<SampleInformation> known;
    for (const auto& information : known)
        if (information.noise() == noise_ions) return information;
    return known.emplace_back(noise_ions);
}

/// Change of the expected counts of a sample when the peak moves by one ns, and when its ions spread wider by a factor
/// e.
double position_slope(const SyntheticSet& set, const TruePeak& peak, double sample_ns) {
    const double step = 1e-3 * set.sigma_ns(peak.time_ns);
    return (expected_counts(set, peak, sample_ns - step) - expected_counts(set, peak, sample_ns + step)) / (2 * step);
}

double width_slope(const SyntheticSet& set, const TruePeak& peak, double sample_ns) {
    const double moved = (sample_ns - peak.time_ns) * position_slope(set, peak, sample_ns);
    return moved - expected_counts(set, peak, sample_ns);
}

/// Covariance of the counts of two samples at the given distances from the peak: integral over the arrival density of
/// the product of two pulses, which is a pulse of the distance times the arrival spread widened by half a pulse.
double pulse_covariance(const SyntheticSet& set, const TruePeak& peak, double first_ns, double second_ns) {
    const double pulse = set.detector_fwhm_ns / fwhm_per_sigma;
    const ArrivalSpread arrival = arrival_spread(set, peak.time_ns);
    const double pair = pulse * std::numbers::sqrt2;
    const double widened = std::hypot(arrival.sigma_ns, pulse / std::numbers::sqrt2);
    const double x = (0.5 * (first_ns + second_ns) - peak.time_ns) / widened;
    const double middle = ((1 - set.tail_fraction) * normal_density(x) +
                           set.tail_fraction * delayed_density(x, arrival.tail_ns / widened)) /
                          widened;
    const double ion_square = set.counts_per_ion * set.counts_per_ion * (1 + std::pow(set.pulse_height_spread, 2));
    return peak.ions * ion_square * set.interval_ns * set.interval_ns * middle *
           normal_density((first_ns - second_ns) / pair) / pair;
}

double pulse_information(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    const auto [first, last] = samples_of_peak(set, peak, start_time_ns);
    const auto size = static_cast<std::size_t>(last - first + 1);
    std::vector<double> lower(size * size);
    std::vector<double> solution(size);
    double information = 0;
    for (std::size_t row = 0; row < size; ++row) {
        const double row_ns =
            start_time_ns + static_cast<double>(first + static_cast<std::ptrdiff_t>(row)) * set.interval_ns;
        double right = position_slope(set, peak, row_ns);
        for (std::size_t column = 0; column <= row; ++column) {
            const double column_ns =
                start_time_ns + static_cast<double>(first + static_cast<std::ptrdiff_t>(column)) * set.interval_ns;
            double value = pulse_covariance(set, peak, row_ns, column_ns);
            if (row == column) value += set.noise_counts * set.noise_counts + 1.0 / 12;
            for (std::size_t k = 0; k < column; ++k) value -= lower[row * size + k] * lower[column * size + k];
            lower[row * size + column] = row == column ? std::sqrt(value) : value / lower[column * size + column];
        }
        for (std::size_t k = 0; k < row; ++k) right -= lower[row * size + k] * solution[k];
        solution[row] = right / lower[row * size + row];
        information += solution[row] * solution[row];
    }
    return information;
}

/// Information of independent samples about a change of the expected counts, and of two changes at once.
struct CountingInformation {
    double position = 0;
    double width = 0;
    double ions = 0;
    double width_and_ions = 0;
};

CountingInformation counting_information(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    const auto& information = sample_information(set.noise_counts / set.counts_per_ion);
    const auto [first, last] = samples_of_peak(set, peak, start_time_ns);
    const double ion_square = set.counts_per_ion * set.counts_per_ion;
    CountingInformation total;
    for (auto i = first; i <= last; ++i) {
        const double sample_ns = start_time_ns + static_cast<double>(i) * set.interval_ns;
        const double counts = expected_counts(set, peak, sample_ns);
        const double lambda = counts / set.counts_per_ion;
        if (lambda < 1e-9) continue;
        const double weight = information(lambda) / ion_square;
        const double position = position_slope(set, peak, sample_ns);
        const double width = width_slope(set, peak, sample_ns);
        total.position += weight * position * position;
        total.width += weight * width * width;
        total.ions += weight * counts * counts;
        total.width_and_ions += weight * width * counts;
    }
    return total;
}

}  // namespace

double position_variance_bound_ns2(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    if (set.statistics == IonStatistics::Pulse) return 1 / pulse_information(set, peak, start_time_ns);
    return 1 / counting_information(set, peak, start_time_ns).position;
}

double relative_width_variance_bound(const SyntheticSet& set, const TruePeak& peak, double start_time_ns) {
    if (set.statistics == IonStatistics::Pulse) return 1 / (2 * peak.ions);
    const CountingInformation information = counting_information(set, peak, start_time_ns);
    return 1 / (information.width - information.width_and_ions * information.width_and_ions / information.ions);
}

}  // namespace korvane
