#include "instrument/peakfinder/search_steps.h"

namespace korvane {

using namespace method;

namespace {

bool is_too_wide(const SearchContext& context, const FittedPeak& peak) {
    const double allowed = 1 + suspect_deviations * std::hypot(peak.fit.sigma_error, context.model.width_spread);
    return peak.fit.own_sigma > allowed * context.expected_sigma(peak.fit.shape.centre);
}

bool is_too_lopsided(const SearchContext& context, const FittedPeak& peak) {
    const double variance = sides_part * context.model.ion_variance() * peak.area +
                            sides_sigmas * context.noise_variance(peak.fit.shape.centre) * peak.fit.shape.sigma;
    const double unexpected = std::abs(peak.late_excess - excess_of_tail * context.model.tail_fraction * peak.area);
    return peak.area > 0 && unexpected > suspect_deviations * std::sqrt(variance) + lopsided_part * peak.area;
}

/// Next to the peak its own misfit is all that is left; that is taken away too.
void remove_peak(const SearchContext& context, const PeakShape& shape, double sigma, Index first,
                 std::span<double> above) {
    std::vector<double> model(above.size(), 0.0);
    add_late_peak_samples(shape, context.model.tail_fraction, first, model);
    for (std::size_t i = 0; i < above.size(); ++i) {
        const double distance = std::abs(static_cast<double>(first + i) - shape.centre);
        above[i] = distance < 0.5 * least_distance_sigmas * sigma ? 0 : above[i] - model[i];
    }
}

PeakShape best_correlation(std::span<const double> above, Index first, double sigma) {
    PeakShape best{0, static_cast<double>(first), sigma};
    for (Index centre = 0; centre < std::ssize(above); ++centre) {
        const double height = correlation(above, centre, sigma, overlap_correlation_sigmas).height();
        if (height > best.height) best = {height, static_cast<double>(first + centre), sigma};
    }
    return best;
}

/// Candidates for what one peak may be, its neighbours taken away; not ascending, and of no height where there is none.
std::pair<PeakShape, PeakShape> two_candidates(const SearchContext& context, std::span<const FittedPeak> neighbourhood,
                                               std::size_t index) {
    const PeakShape& whole = neighbourhood[index].fit.shape;
    const double sigma = context.expected_sigma(whole.centre);
    const double reach = std::max(searched_sigmas * sigma, searched_own_sigmas * whole.sigma);
    const auto range = context.samples_between(std::floor(whole.centre - reach), std::ceil(whole.centre + reach));
    auto above = context.above(range);
    for (std::size_t i = 0; i < neighbourhood.size(); ++i)
        if (i != index) remove_peak(context, neighbourhood[i].fit.shape, sigma, range.first, above);
    const PeakShape main = best_correlation(above, range.first, sigma);
    remove_peak(context, main, sigma, range.first, above);
    return {main, best_correlation(above, range.first, sigma)};
}

/// Sum of the squares of the deviations of the samples from the peaks.
double misfit(const SearchContext& context, std::span<const FittedPeak> peaks, double from, double to) {
    const auto range = context.samples_between(from, to);
    const auto above = context.above(range);
    std::vector<double> model(range.size(), 0.0);
    for (const auto& peak : peaks)
        add_late_peak_samples(peak.fit.shape, context.late_part(peak.fit.shape.sigma), range.first, model);
    const double noise_variance = context.noise_variance(0.5 * (from + to));
    double sum = 0;
    for (Index i = 0; i < range.size(); ++i) {
        if (context.is_saturated(range.first + i)) continue;
        const double shape_error = overlap_shape_error * model[i];
        const double variance = noise_variance + context.model.ion_variance() * model[i] + shape_error * shape_error;
        sum += (above[i] - model[i]) * (above[i] - model[i]) / variance;
    }
    return sum;
}

bool are_convincing(const SearchContext& context, std::span<const FittedPeak> before, std::span<const FittedPeak> after,
                    std::size_t index) {
    const FittedPeak& left = after[index];
    const FittedPeak& right = after[index + 1];
    const double sigma = context.expected_sigma(left.fit.shape.centre);
    if (!left.fit.valid || !right.fit.valid || is_too_wide(context, left) || is_too_wide(context, right)) return false;
    if (right.fit.shape.centre - left.fit.shape.centre < least_distance_sigmas * sigma) return false;
    auto height = [](const FittedPeak& a, const FittedPeak& b) { return a.fit.shape.height < b.fit.shape.height; };
    const auto& [lower, higher] = std::minmax(right, left, height);
    if (lower.fit.height_error * least_height_errors > 1) return false;
    if (lower.fit.shape.height < least_height_part * higher.fit.shape.height) return false;
    const double from = left.fit.shape.centre - judged_sigmas * sigma;
    const double to = right.fit.shape.centre + judged_sigmas * sigma;
    return misfit(context, after, from, to) + least_gain < misfit(context, before, from, to);
}

/// The two peaks and their neighbours, or nothing.
std::vector<FittedPeak> measure_as_two(const SearchContext& context, std::span<const FittedPeak> neighbourhood,
                                       std::size_t index) {
    auto [left, right] = two_candidates(context, neighbourhood, index);
    if (!(right.height > 0) || right.centre == left.centre) return {};
    if (right.centre < left.centre) std::swap(left, right);
    std::vector<PeakShape> candidates;
    for (const auto& peak : neighbourhood) candidates.push_back(peak.fit.shape);
    candidates[index] = left;
    candidates.insert(candidates.begin() + index + 1, right);
    for (std::size_t i = 1; i < candidates.size(); ++i)
        if (candidates[i].centre <= candidates[i - 1].centre) return {};
    auto measured = measure_peaks(context, candidates);
    if (!are_convincing(context, neighbourhood, measured, index)) return {};
    return measured;
}

/// First and end of the peaks within so many widths of one.
std::pair<std::size_t, std::size_t> neighbours(std::span<const FittedPeak> peaks, std::size_t index,
                                               double reach_sigmas) {
    const PeakShape& shape = peaks[index].fit.shape;
    const double reach = reach_sigmas * shape.sigma;
    std::size_t first = index;
    while (first > 0 && shape.centre - peaks[first - 1].fit.shape.centre < reach) --first;
    std::size_t end = index + 1;
    while (end < peaks.size() && peaks[end].fit.shape.centre - shape.centre < reach) ++end;
    return {first, end};
}

}  // namespace

void split_overlapping_peaks(const SearchContext& context, std::vector<FittedPeak>& peaks) {
    for (std::size_t index = 0; index < peaks.size(); ++index) {
        const FittedPeak& peak = peaks[index];
        // What a clipped peak's flanks show beside its fit may be its own shape.
        if (!peak.fit.valid || peak.fit.clipped || !(is_too_wide(context, peak) || is_too_lopsided(context, peak)))
            continue;
        const auto [first, end] = neighbours(peaks, index, overlap_neighbour_sigmas);
        // What lies further out bears on them, but is not measured with all its own neighbours here.
        const auto [outer_first, outer_end] = neighbours(peaks, index, 2 * overlap_neighbour_sigmas);
        const auto measured = measure_as_two(context, std::span(peaks).subspan(outer_first, outer_end - outer_first),
                                             index - outer_first);
        if (measured.empty()) continue;
        peaks.insert(peaks.begin() + index, FittedPeak{});
        std::copy_n(measured.begin() + (first - outer_first), end - first + 1, peaks.begin() + first);
        ++index;  // past the second of the two
    }
}

}  // namespace korvane
