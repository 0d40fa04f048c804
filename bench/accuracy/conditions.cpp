#include "bench/accuracy/conditions.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <numbers>

namespace korvane {

namespace {

using Random = std::mt19937_64;

double uniform(Random& random, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
}

double log_uniform(Random& random, double low, double high) {
    return low * std::pow(high / low, uniform(random, 0, 1));
}

/// Every condition's peaks have a width and a part of late ions of their own.
Profile drawn_shape(Random& random, double least_fwhm, double most_fwhm) {
    Profile profile;
    profile.fwhm = uniform(random, least_fwhm, most_fwhm);
    profile.tail_fraction = uniform(random, 0, 0.08);
    profile.counts_per_ion = uniform(random, 40, 80);
    return profile;
}

/// Groups of peaks `distance` apart, of heights falling to the part `fall` from one to the next, evenly over the
/// spectrum, not in the last 100 samples of their room.
void add_groups(Profile& profile, Random& random, int groups, int members, double distance, double least_ions,
                double most_ions, double fall = 1) {
    const double room = static_cast<double>(profile.samples) / groups;
    for (int group = 0; group < groups; ++group) {
        const double span = distance * (members - 1) + 300;
        double place = group * room + 100 + uniform(random, 0, std::max(1.0, room - span));
        double ions = log_uniform(random, least_ions, most_ions);
        for (int member = 0; member < members; ++member, place += distance, ions *= fall)
            profile.peaks.push_back({place, ions});
    }
}

Profile lone(Random& random, double least_fwhm, double most_fwhm, int peaks, double least_ions, double most_ions) {
    Profile profile = drawn_shape(random, least_fwhm, most_fwhm);
    add_groups(profile, random, peaks, 1, 0, least_ions, most_ions);
    return profile;
}

Profile envelopes(Random& random) {
    Profile profile = drawn_shape(random, 9, 11);
    profile.samples = 120000;
    add_groups(profile, random, 6, 6, uniform(random, 40, 46), 2000, 50000, uniform(random, 0.4, 0.8));
    return profile;
}

Profile clusters(Random& random, double widths_apart) {
    Profile profile = drawn_shape(random, 4, 10);
    const double distance = widths_apart * profile.fwhm;
    const double fall = uniform(random, 0.8, 1);
    add_groups(profile, random, 8, 7, distance, 300, 3000, fall);
    for (auto& peak : profile.peaks) peak.judged = false;
    const double room = static_cast<double>(profile.samples) / 8;
    for (int i = 0; i < 8; ++i) {
        const double place = room * i + room - 80;
        profile.peaks.push_back({place + uniform(random, 0, 1), log_uniform(random, 300, 3000)});
    }
    return profile;
}

Profile pairs(Random& random, double widths_apart, double ions, double ratio) {
    Profile profile = drawn_shape(random, 4, 8);
    add_groups(profile, random, 20, 2, widths_apart * profile.fwhm, ions, ions, ratio);
    return profile;
}

Profile clipped(Random& random, double part) {
    Profile profile = lone(random, 4, 8, 20, 5000, 5000);
    profile.clip_part = part;
    return profile;
}

Profile with(Profile profile, double Profile::*trait, double value) {
    profile.*trait = value;
    return profile;
}

}  // namespace

double Profile::ions_at(const ProfilePeak& peak, double sample) const {
    const double sigma = fwhm / fwhm_per_sigma;
    const double u = (sample - peak.centre) / sigma;
    double density = (1 - tail_fraction - wing_fraction) * std::exp(-0.5 * u * u) / std::sqrt(2 * std::numbers::pi);
    const double rate = 1 / tail_sigmas;
    if (tail_fraction > 0 && u > -6)
        density += tail_fraction * 0.5 * rate * std::exp(0.5 * rate * rate - rate * u) *
                   std::erfc((rate - u) / std::numbers::sqrt2);
    const double half = 0.5 * fwhm_per_sigma;
    if (wing_fraction > 0) density += wing_fraction * half / (std::numbers::pi * (u * u + half * half));
    return peak.ions * density / sigma;
}

double Profile::true_fwhm() const {
    const ProfilePeak unit{0, 1};
    double top = 0;
    for (double u = -1; u < 1; u += 0.001) top = std::max(top, ions_at(unit, u * fwhm));
    double inside = 0;
    for (double u = -2; u < 2; u += 0.001) inside += ions_at(unit, u * fwhm) > 0.5 * top ? 0.001 : 0;
    return inside * fwhm;
}

double Profile::clip_counts() const {
    if (clip_part == 0) return 1e9;
    const ProfilePeak& first = peaks.front();
    return std::floor(baseline_counts + clip_part * counts_per_ion * ions_at(first, first.centre));
}

std::vector<std::int32_t> Profile::draw(Random& random) const {
    std::vector<double> ions(samples, 0.0);
    const double reach = fwhm * (wing_fraction > 0 ? 200 : 4 + 3 * tail_sigmas);
    for (const auto& peak : peaks) {
        const auto first = static_cast<std::size_t>(std::max(0.0, peak.centre - reach));
        const auto end = static_cast<std::size_t>(std::min(static_cast<double>(samples), peak.centre + reach));
        for (std::size_t i = first; i < end; ++i) ions[i] += ions_at(peak, static_cast<double>(i));
    }
    std::normal_distribution<double> normal;
    const double phase = uniform(random, 0, 2 * std::numbers::pi);
    double level = baseline_counts;
    double until = step_deviations > 0 ? step_samples * uniform(random, 0.5, 1) : 1e18;
    std::vector<std::int32_t> counts(samples);
    for (std::size_t i = 0; i < samples; ++i) {
        const auto place = static_cast<double>(i);
        if (place > until) {
            level = level > baseline_counts ? baseline_counts : baseline_counts + step_deviations * noise_counts;
            until += step_samples * uniform(random, 0.8, 1.2);
        }
        const double ripple =
            ripple_deviations * noise_counts * std::sin(phase + 2 * std::numbers::pi * place / ripple_samples);
        const double arrived = ions[i] > 1e-9 ? std::poisson_distribution<int>(ions[i])(random) : 0;
        const double value = level + ripple + counts_per_ion * arrived + noise_counts * normal(random);
        const double digital = digit_counts * std::round(value / digit_counts);
        counts[i] = static_cast<std::int32_t>(std::min(digital, clip_counts()));
    }
    return counts;
}

double Profile::position_bound(const ProfilePeak& peak) const {
    const double noise_ions_square =
        (noise_counts * noise_counts + digit_counts * digit_counts / 12) / (counts_per_ion * counts_per_ion);
    const double limit = (clip_counts() - baseline_counts) / counts_per_ion;
    double information = 0;
    for (double sample = std::floor(peak.centre - 4 * fwhm); sample < peak.centre + 6 * fwhm; sample += 1) {
        double all = 0;
        for (const auto& other : peaks)
            if (std::abs(other.centre - sample) < 8 * fwhm) all += ions_at(other, sample);
        const double slope =
            (ions_at(peak, sample + 0.01 * fwhm) - ions_at(peak, sample - 0.01 * fwhm)) / (0.02 * fwhm);
        if (all < limit) information += slope * slope / (all + noise_ions_square);
    }
    return 1 / std::sqrt(information);
}

const std::vector<Condition>& conditions() {
    static const std::vector<Condition> all{
        {"lone peaks, 30 to 3,000 ions", [](Random& random) { return lone(random, 3, 10, 30, 30, 3000); }},
        {"6 envelopes of 6 isotopes, 43 samples apart at FWHM 10", envelopes},
        {"clusters of 7 isotopes 1.5 widths apart", [](Random& random) { return clusters(random, 1.5); }},
        {"clusters 1.8 widths apart", [](Random& random) { return clusters(random, 1.8); }},
        {"clusters 2.0 widths apart", [](Random& random) { return clusters(random, 2.0); }},
        {"baseline ripple of 2 deviations, period 6,000 samples",
         [](Random& random) { return with(lone(random, 4, 8, 30, 50, 3000), &Profile::ripple_deviations, 2); }},
        {"steps of 10 deviations each 5,000 samples",
         [](Random& random) { return with(lone(random, 4, 8, 30, 50, 3000), &Profile::step_deviations, 10); }},
        {"10 ions a peak", [](Random& random) { return lone(random, 4, 8, 40, 10, 10); }},
        {"30 ions, two peaks 3 widths apart", [](Random& random) { return pairs(random, 3, 30, 1); }},
        {"30 ions, two peaks 3 widths apart", [](Random& random) { return pairs(random, 3, 30, 1); }, true},
        {"clipped at 60 % of the height", [](Random& random) { return clipped(random, 0.6); }},
        {"clipped at 30 %", [](Random& random) { return clipped(random, 0.3); }},
        {"clipped at 10 %", [](Random& random) { return clipped(random, 0.1); }},
        {"pairs 1.25 widths apart, 1:3", [](Random& random) { return pairs(random, 1.25, 3000, 1 / 3.0); }},
        {"equal pairs of 1,000 ions 1.5 widths apart", [](Random& random) { return pairs(random, 1.5, 1000, 1); },
         true},
        {"pairs 2 widths apart, 10:1", [](Random& random) { return pairs(random, 2, 3000, 0.1); }, true},
        {"8 % of the ions in a tail of 4 sigma",
         [](Random& random) {
             Profile profile = lone(random, 4, 8, 20, 300, 10000);
             profile.tail_fraction = 0.08;
             profile.tail_sigmas = 4;
             return profile;
         }},
        {"20 % of the ions in wings of a Lorentzian, 100,000 ions",
         [](Random& random) {
             Profile profile = lone(random, 4, 8, 10, 100000, 100000);
             profile.tail_fraction = 0;
             profile.wing_fraction = 0.2;
             return profile;
         }},
        {"digits of 30 counts",
         [](Random& random) {
             Profile profile = lone(random, 4, 8, 30, 100, 3000);
             profile.digit_counts = 30;
             profile.baseline_counts = 300 + uniform(random, -15, 15);
             return profile;
         }},
        {"1.2 samples a width", [](Random& random) { return lone(random, 1.2, 1.2, 30, 100, 3000); }},
        {"noise of 0.05 ions",
         [](Random& random) { return with(lone(random, 4, 8, 30, 100, 3000), &Profile::counts_per_ion, 280); }},
        {"371 peaks in a chain, 1.6 to 2.4 widths apart",
         [](Random& random) {
             Profile profile = drawn_shape(random, 5, 7);
             double place = 10000;
             for (int i = 0; i < 371; ++i, place += profile.fwhm * uniform(random, 1.6, 2.4))
                 profile.peaks.push_back({place, log_uniform(random, 300, 3000)});
             return profile;
         }},
    };
    return all;
}

ConditionScore score_of(const Condition& condition, std::uint64_t first_seed, int spectra) {
    constexpr double start_ns = 20000, interval_ns = 0.5;
    ConditionScore score;
    double true_peaks = 0, found_peaks = 0, all_found = 0, judged = 0, squares = 0, stated_squares = 0;
    for (int i = 0; i < spectra; ++i) {
        Random random(first_seed + static_cast<std::uint64_t>(i));
        const Profile profile = condition.profile(random);
        const auto counts = profile.draw(random);
        PeakFinderOptions options;
        if (condition.knowing) {
            options.width = WidthModel{1e9, profile.fwhm * interval_ns};
            options.counts_per_ion = profile.counts_per_ion;
            options.tail_fraction = profile.tail_fraction;
        }
        const auto finder = make_peak_finder(options);
        finder->set_sampling_interval_ns(interval_ns);
        finder->set_minimum_samples(3);
        finder->set_baseline_removal(1);
        finder->set_search_start_ns(0);
        finder->set_search_end_ns(1e9);
        finder->set_samples(counts);
        const std::clock_t begin = std::clock();
        const auto list = finder->run(start_ns);
        score.milliseconds += 1000.0 * static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        std::vector<PeakInfo> found;
        for (std::int32_t k = 0; k < list->count(); ++k) found.push_back(list->GetPeakAttributeInfo(k, false));
        struct Hit {
            double error, stated, bound;  // samples
        };
        std::vector<Hit> hits;
        std::vector<bool> is_true(found.size());
        const double fwhm = profile.true_fwhm();
        for (const auto& truth : profile.peaks) {
            auto distance = [&](const PeakInfo& peak) {
                return std::abs((peak.pkCentroid - start_ns) / interval_ns - truth.centre);
            };
            const auto nearest = std::ranges::min_element(found, {}, distance);
            true_peaks += 1;
            if (nearest == found.end() || distance(*nearest) > 0.5 * profile.fwhm) continue;
            const auto index = nearest - found.begin();
            if (is_true[index]) continue;
            is_true[index] = true;
            found_peaks += 1;
            if (const auto quality = list->quality(static_cast<std::int32_t>(index))) score.flagged += quality->clipped;
            if (!truth.judged) continue;
            hits.push_back({(nearest->pkCentroid - start_ns) / interval_ns - truth.centre,
                            list->uncertainty(static_cast<std::int32_t>(index))->centroid / interval_ns,
                            profile.position_bound(truth)});
            judged += 1;
            score.width += nearest->pkWidth / interval_ns / fwhm;
            score.height += nearest->pkHeight / (profile.counts_per_ion * profile.ions_at(truth, truth.centre));
        }
        all_found += static_cast<double>(std::ranges::count(is_true, false));
        // Late ions pull all centroids alike.
        double weights = 0, offset = 0;
        for (const auto& hit : hits) {
            weights += 1 / (hit.bound * hit.bound);
            offset += hit.error / (hit.bound * hit.bound);
        }
        for (const auto& hit : hits) {
            const double error = hit.error - offset / weights;
            const double free_part = std::max(0.1, 1 - 1 / (weights * hit.bound * hit.bound));
            squares += error * error / (hit.bound * hit.bound) / free_part;
            stated_squares += error * error / (hit.stated * hit.stated) / free_part;
        }
    }
    score.found = found_peaks / true_peaks;
    score.false_peaks = all_found / spectra;
    score.spread = std::sqrt(squares / judged);
    score.stated = 1 / std::sqrt(stated_squares / judged);
    score.width /= judged;
    score.height /= judged;
    score.flagged /= found_peaks;
    score.milliseconds /= spectra;
    return score;
}

}  // namespace korvane
