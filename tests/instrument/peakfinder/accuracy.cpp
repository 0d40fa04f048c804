#include "accuracy.h"

#include <algorithm>
#include <cmath>

#include "support/information_bounds.h"

namespace korvane {

namespace {

/// The search of one kind over many spectra.
struct Judge {
    const SyntheticSet& set;
    PeakFinderOptions options;
    bool windows = false;
    std::vector<PeakScore> calibrants{10};
    double spectra = 0, found = 0, matched = 0, visible = 0, visible_found = 0;

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
        constexpr int bound_spectra = 4;  // the bound hardly depends on the sub-sample phase
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
            calibrant->ions = truth.ions;
            calibrant->missed += !hit;
            if (hit) calibrant->add(set, truth, *nearest);
            if (spectra < bound_spectra) calibrant->add_bounds(set, truth, spectrum.start_time_ns);
            ++calibrant;
        }
        spectra += 1;
        found += static_cast<double>(peaks.size());
        matched += static_cast<double>(std::ranges::count(is_true, true));
    }

    Accuracy result() const {
        Accuracy total;
        double logarithms = 0, inverse_ratios = 0, strong = 0;
        auto add = [](Accuracy::Quantity& quantity, double over_bound, double mean) {
            quantity.together += over_bound * over_bound;
            quantity.worst = std::max(quantity.worst, over_bound);
            quantity.bias = std::max(quantity.bias, std::abs(mean - 1));
        };
        for (const auto& calibrant : calibrants) {
            const double position = calibrant.position_over_bound();
            logarithms += std::log(position);
            inverse_ratios += 1 / calibrant.stated_over_observed_variance();
            total.missed += calibrant.missed;
            if (calibrant.ions <= 100) total.worst_weak_position = std::max(total.worst_weak_position, position);
            if (calibrant.ions < 1000) continue;
            total.worst_strong_position = std::max(total.worst_strong_position, position);
            const Spread& width = calibrant.relative_width;
            const Spread& area = calibrant.relative_area;
            add(total.width, width.deviation() / std::sqrt(calibrant.width_bound_variance.mean()), width.mean());
            add(total.area, area.deviation() * std::sqrt(calibrant.ions), area.mean());
            strong += 1;
        }
        const auto number = static_cast<double>(calibrants.size());
        total.position = std::exp(logarithms / number);
        total.stated_over_observed = 1 / std::sqrt(inverse_ratios / number);
        for (auto* quantity : {&total.width, &total.area}) quantity->together = std::sqrt(quantity->together / strong);
        total.false_peaks = (found - matched) / spectra;
        total.background_found = visible_found / std::max(1.0, visible);
        return total;
    }
};

}  // namespace

PeakListObject run_finder(PeakFinder& finder, const SyntheticSpectrum& spectrum, const SearchWindow& window) {
    finder.set_sampling_interval_ns(spectrum.interval_ns);
    finder.set_minimum_samples(3);
    finder.set_baseline_removal(1);
    finder.set_search_start_ns(window.start_ns);
    finder.set_search_end_ns(window.end_ns);
    finder.set_samples(spectrum.counts);
    return finder.run(spectrum.start_time_ns);
}

std::vector<MeasuredPeak> contents(const PeakList& list) {
    std::vector<MeasuredPeak> found;
    for (std::int32_t i = 0; i < list.count(); ++i)
        found.push_back({list.GetPeakAttributeInfo(i, true), list.uncertainty(i).value()});
    return found;
}

std::vector<MeasuredPeak> find_peaks(const SyntheticSpectrum& spectrum, const PeakFinderOptions& options,
                                     const SearchWindow& window) {
    return contents(*run_finder(*make_peak_finder(options), spectrum, window));
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

void Spread::add(double value) {
    number_ += 1;
    sum_ += value;
    square_sum_ += value * value;
}

double Spread::deviation() const {
    return std::sqrt(std::max(0.0, (square_sum_ - sum_ * sum_ / number_) / (number_ - 1)));
}

void PeakScore::add(const SyntheticSet& set, const TruePeak& truth, const MeasuredPeak& found) {
    position_ns.add(found.record.pkCentroid - truth.time_ns);
    relative_width.add(found.record.pkWidth / true_shape(set, truth).fwhm_ns);
    relative_area.add(found.record.pkArea / (truth.ions * set.counts_per_ion));
    stated_position_variance.add(found.uncertainty.centroid * found.uncertainty.centroid);
}

void PeakScore::add_bounds(const SyntheticSet& set, const TruePeak& truth, double start_time_ns) {
    const InformationBounds bounds = information_bounds(set, truth, start_time_ns);
    position_bound_variance.add(bounds.position_variance_ns2);
    width_bound_variance.add(bounds.relative_width_variance);
}

double PeakScore::position_over_bound() const {
    return position_ns.deviation() / std::sqrt(position_bound_variance.mean());
}

double PeakScore::stated_over_observed_variance() const {
    return stated_position_variance.mean() / std::pow(position_ns.deviation(), 2);
}

std::array<Accuracy, 3> accuracy_of(const SyntheticSet& set, int spectra) {
    std::array<Judge, 3> judges{Judge{set, known_of(set)}, Judge{set, {}}, Judge{set, {}, true}};
    for (int seed = 1; seed <= spectra; ++seed) {
        const SyntheticSpectrum spectrum = synthesize(set, static_cast<std::uint64_t>(seed));
        for (auto& judge : judges) judge.add(spectrum);
    }
    return {judges[0].result(), judges[1].result(), judges[2].result()};
}

}  // namespace korvane
