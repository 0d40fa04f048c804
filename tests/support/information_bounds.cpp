#include "support/information_bounds.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace korvane {

namespace {

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

}  // namespace

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

}  // namespace korvane
