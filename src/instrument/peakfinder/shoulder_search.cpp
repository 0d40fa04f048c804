#include "instrument/peakfinder/shoulder_search.h"

#include <algorithm>
#include <cmath>

#include "instrument/peakfinder/tail_response.h"

namespace korvane {

namespace {

constexpr double neighbour_sigmas = 12;
constexpr double suspect_deviations = 4;
// Of the area, in what the sides of a peak differ by without being suspect.
constexpr double lopsided_part = 0.02;
constexpr double late_part = 0.055;  // of the area lies in the two sides that the excess compares
constexpr double searched_sigmas = 6.5;
constexpr double least_distance_sigmas = 2.6;
constexpr double least_height_errors = 6;
// Late ions and the detector's ringing make shoulders of a few percent.
constexpr double least_height_part = 0.06;
constexpr double least_gain = 25;  // in the sum of squares, for three more parameters
constexpr double shape_error = 0.03;
constexpr double judged_sigmas = 5;

}  // namespace

bool ShoulderSearch::too_wide(const FittedPeak& peak) const {
    const double expected = traits_.sigma_samples(axis_, peak.fit.shape.centre);
    const double allowed = 1 + suspect_deviations * std::hypot(peak.fit.sigma_error, traits_.width_spread);
    return peak.fit.own_sigma > allowed * expected;
}

bool ShoulderSearch::too_lopsided(const FittedPeak& peak) const {
    const double noise = background_.at(peak.fit.shape.centre).noise;
    const double sides = late_part * traits_.ion_variance() * peak.area + 8 * noise * noise * peak.fit.shape.sigma;
    const double expected = excess_of_tail * traits_.tail_fraction * peak.area;
    const double unexpected = std::abs(peak.late_excess - expected);
    return peak.area > 0 && unexpected > suspect_deviations * std::sqrt(sides) + lopsided_part * peak.area;
}

void ShoulderSearch::take_apart(std::vector<FittedPeak>& peaks) {
    for (std::size_t index = 0; index < peaks.size(); ++index) {
        if (!peaks[index].fit.valid || !(too_wide(peaks[index]) || too_lopsided(peaks[index]))) continue;
        const PeakShape& shape = peaks[index].fit.shape;
        const double reach = neighbour_sigmas * shape.sigma;
        std::size_t first = index;
        while (first > 0 && shape.centre - peaks[first - 1].fit.shape.centre < reach) --first;
        std::size_t end = index + 1;
        while (end < peaks.size() && peaks[end].fit.shape.centre - shape.centre < reach) ++end;
        const auto replacement = taken_apart(std::span(peaks).subspan(first, end - first), index - first);
        if (replacement.empty()) continue;
        const auto begin = peaks.begin() + static_cast<std::ptrdiff_t>(first);
        const auto place = peaks.erase(begin, begin + static_cast<std::ptrdiff_t>(end - first));
        peaks.insert(place, replacement.begin(), replacement.end());
        ++index;  // past the second of the two
    }
}

std::vector<FittedPeak> ShoulderSearch::taken_apart(std::span<const FittedPeak> neighbourhood, std::size_t index) {
    const auto two = two_of(neighbourhood, index);
    if (two.size() != 2) return {};
    std::vector<PeakShape> candidates;
    for (std::size_t i = 0; i < neighbourhood.size(); ++i) {
        if (i == index)
            candidates.insert(candidates.end(), two.begin(), two.end());
        else
            candidates.push_back(neighbourhood[i].fit.shape);
    }
    for (std::size_t i = 1; i < candidates.size(); ++i)
        if (candidates[i].centre <= candidates[i - 1].centre) return {};
    auto measured = PeakMeasurement(counts_, axis_, background_, traits_).measure(candidates);
    if (!convincing(neighbourhood, measured, index)) return {};
    return measured;
}

std::vector<PeakShape> ShoulderSearch::two_of(std::span<const FittedPeak> neighbourhood, std::size_t index) {
    const PeakShape& whole = neighbourhood[index].fit.shape;
    const double sigma = traits_.sigma_samples(axis_, whole.centre);
    const double reach = std::max(searched_sigmas * sigma, 3 * whole.sigma);
    const auto last = static_cast<double>(counts_.size() - 1);
    const auto first = static_cast<std::size_t>(std::clamp(std::floor(whole.centre - reach), 0.0, last));
    const auto end = static_cast<std::size_t>(std::clamp(std::ceil(whole.centre + reach), 0.0, last)) + 1;
    std::vector<double> above(end - first);
    background_.subtract(counts_, first, above);
    for (std::size_t i = 0; i < neighbourhood.size(); ++i)
        if (i != index) take_away(neighbourhood[i].fit.shape, sigma, first, above);
    const PeakShape main = best_match(above, first, sigma);
    take_away(main, sigma, first, above);
    const PeakShape second = best_match(above, first, sigma);
    if (!(second.height > 0) || second.centre == main.centre) return {};
    return second.centre < main.centre ? std::vector{second, main} : std::vector{main, second};
}

void ShoulderSearch::take_away(const PeakShape& shape, double sigma, std::size_t first, std::span<double> above) const {
    std::vector<double> model(above.size(), 0.0);
    add_late_peak_samples(shape, traits_.tail_fraction, static_cast<std::ptrdiff_t>(first), model);
    for (std::size_t i = 0; i < above.size(); ++i) {
        // Next to the peak its own misfit is all that is left.
        const double distance = std::abs(static_cast<double>(first + i) - shape.centre);
        above[i] = distance < 0.5 * least_distance_sigmas * sigma ? 0 : above[i] - model[i];
    }
}

PeakShape ShoulderSearch::best_match(std::span<const double> above, std::size_t first, double sigma) const {
    const auto reach = static_cast<std::ptrdiff_t>(std::ceil(1.5 * sigma));
    const auto size = static_cast<std::ptrdiff_t>(above.size());
    std::vector<double> weights(static_cast<std::size_t>(2 * reach + 1));
    gaussian_samples({1, 0, sigma}, -reach, weights);
    PeakShape best{0, static_cast<double>(first), sigma};
    for (std::ptrdiff_t centre = 0; centre < size; ++centre) {
        double sum = 0;
        double square_sum = 0;
        for (auto i = std::max<std::ptrdiff_t>(0, centre - reach); i <= std::min(size - 1, centre + reach); ++i) {
            const double weight = weights[static_cast<std::size_t>(i - centre + reach)];
            sum += weight * above[static_cast<std::size_t>(i)];
            square_sum += weight * weight;
        }
        if (sum / square_sum > best.height)
            best = {sum / square_sum, static_cast<double>(first) + static_cast<double>(centre), sigma};
    }
    return best;
}

bool ShoulderSearch::convincing(std::span<const FittedPeak> before, std::span<const FittedPeak> after,
                                std::size_t index) const {
    const FittedPeak& left = after[index];
    const FittedPeak& right = after[index + 1];
    const double sigma = traits_.sigma_samples(axis_, left.fit.shape.centre);
    if (!left.fit.valid || !right.fit.valid || too_wide(left) || too_wide(right)) return false;
    if (right.fit.shape.centre - left.fit.shape.centre < least_distance_sigmas * sigma) return false;
    const FittedPeak& lower = left.fit.shape.height < right.fit.shape.height ? left : right;
    const FittedPeak& higher = &lower == &left ? right : left;
    if (lower.fit.height_error * least_height_errors > 1) return false;
    if (lower.fit.shape.height < least_height_part * higher.fit.shape.height) return false;
    const double from = left.fit.shape.centre - judged_sigmas * sigma;
    const double to = right.fit.shape.centre + judged_sigmas * sigma;
    return misfit(after, from, to) + least_gain < misfit(before, from, to);
}

double ShoulderSearch::misfit(std::span<const FittedPeak> peaks, double from, double to) const {
    const auto last = static_cast<double>(counts_.size() - 1);
    const auto first = static_cast<std::size_t>(std::clamp(std::ceil(from), 0.0, last));
    const auto end = static_cast<std::size_t>(std::clamp(std::floor(to), static_cast<double>(first), last)) + 1;
    std::vector<double> above(end - first);
    std::vector<double> model(above.size(), 0.0);
    background_.subtract(counts_, first, above);
    for (const auto& peak : peaks) {
        const double sigma_ns = peak.fit.shape.sigma * axis_.interval_ns;
        const double tail = traits_.tail_fraction * traits_.tail_effect(sigma_ns);
        add_late_peak_samples(peak.fit.shape, tail, static_cast<std::ptrdiff_t>(first), model);
    }
    const double noise = background_.at(0.5 * (from + to)).noise;
    double sum = 0;
    for (std::size_t i = 0; i < above.size(); ++i) {
        if (counts_[first + i] >= traits_.saturation_counts) continue;
        const double misshape = shape_error * model[i];
        const double variance = noise * noise + traits_.ion_variance() * model[i] + misshape * misshape;
        sum += (above[i] - model[i]) * (above[i] - model[i]) / variance;
    }
    return sum;
}

}  // namespace korvane
