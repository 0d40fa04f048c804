#include "accuracy_score.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "support/information_bounds.h"

namespace korvane {

namespace {

std::vector<FoundPeak> search(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options, SearchBy by) {
    if (by == SearchBy::WholeSpectrum) return find_peaks(spectrum, options);
    std::vector<FoundPeak> all;
    for (const auto& peak : spectrum.peaks) {
        if (!peak.calibrant) continue;
        const auto found = find_peaks(spectrum, options, {0.999 * peak.time_ns, 1.001 * peak.time_ns});
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

/// Index of the nearest found peak within one full width, or the number of peaks.
std::size_t match(const std::vector<FoundPeak>& found, double time_ns, double reach_ns) {
    std::size_t best = found.size();
    for (std::size_t i = 0; i < found.size(); ++i) {
        const double distance = std::abs(found[i].record.pkCentroid - time_ns);
        if (distance >= reach_ns) continue;
        reach_ns = distance;
        best = i;
    }
    return best;
}

}  // namespace

double Spread::deviation() const {
    return std::sqrt(std::max(0.0, (square_sum_ - sum_ * sum_ / number_) / (number_ - 1)));
}

void CalibrantScore::add(const SyntheticSet& set, const TruePeak& truth, const FoundPeak& found) {
    position_ns.add(found.record.pkCentroid - truth.time_ns);
    relative_width.add(found.record.pkWidth / true_fwhm_ns(set, truth));
    relative_area.add(found.record.pkArea / (truth.ions * set.counts_per_ion));
    stated_position_variance.add(found.uncertainty.centroid * found.uncertainty.centroid);
}

double CalibrantScore::position_over_bound() const {
    return position_ns.deviation() / std::sqrt(position_bound_variance.mean());
}

double CalibrantScore::width_over_bound() const {
    return relative_width.deviation() / std::sqrt(width_bound_variance.mean());
}

double CalibrantScore::area_over_bound() const {
    return relative_area.deviation() * std::sqrt(ions);
}

double CalibrantScore::stated_over_observed_variance() const {
    return stated_position_variance.mean() / std::pow(position_ns.deviation(), 2);
}

double AccuracyScore::geometric_mean_position() const {
    double sum = 0;
    for (const auto& calibrant : calibrants) sum += std::log(calibrant.position_over_bound());
    return std::exp(sum / static_cast<double>(calibrants.size()));
}

double AccuracyScore::stated_over_observed() const {
    double sum = 0;
    for (const auto& calibrant : calibrants) sum += 1 / calibrant.stated_over_observed_variance();
    return 1 / std::sqrt(sum / static_cast<double>(calibrants.size()));
}

AccuracyScore score(const SyntheticSet& set, const PeakFinderOptions& options, SearchBy by, int spectra) {
    constexpr int bound_spectra = 4;  // the bound hardly depends on the sub-sample phase
    AccuracyScore total;
    total.spectra = spectra;
    double background = 0;
    for (int seed = 1; seed <= spectra; ++seed) {
        const SyntheticSpectrum spectrum = synthesize(set, static_cast<std::uint64_t>(seed));
        const auto found = search(spectrum, options, by);
        std::vector<bool> true_peak(found.size());
        std::size_t calibrant = 0;
        for (const auto& truth : spectrum.peaks) {
            const std::size_t index = match(found, truth.time_ns, set.fwhm_ns(truth.time_ns));
            const bool hit = index < found.size();
            if (hit) true_peak[index] = true;
            if (!truth.calibrant) {
                const bool visible = true_height_counts(set, truth) > 10 * set.noise_counts;
                background += visible;
                total.background_found += visible && hit;
                continue;
            }
            total.calibrants.resize(std::max(total.calibrants.size(), calibrant + 1));
            CalibrantScore& own = total.calibrants[calibrant++];
            own.ions = truth.ions;
            own.missed += !hit;
            if (hit) own.add(set, truth, found[index]);
            if (seed > bound_spectra) continue;
            own.position_bound_variance.add(position_variance_bound_ns2(set, truth, spectrum.start_time_ns));
            own.width_bound_variance.add(relative_width_variance_bound(set, truth, spectrum.start_time_ns));
        }
        total.false_peaks += static_cast<double>(std::count(true_peak.begin(), true_peak.end(), false)) / spectra;
    }
    total.background_found /= std::max(1.0, background);
    return total;
}

}  // namespace korvane
