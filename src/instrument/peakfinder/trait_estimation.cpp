#include "instrument/peakfinder/trait_estimation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>

#include "instrument/peakfinder/ion_statistics.h"
#include "instrument/peakfinder/peak_measurement.h"
#include "instrument/peakfinder/sample_scan.h"
#include "instrument/peakfinder/tail_response.h"

namespace korvane {

namespace {

constexpr double fwhm_of_sigma = 2.3548200450309493;
// The strongest of each of these parts of the range, so that the width is known along the whole axis.
constexpr std::size_t sections = 8;
constexpr std::size_t peaks_per_section = 4;
constexpr std::size_t longest_rise = 1024;  // samples
constexpr double neighbour_sigmas = 14;
// An ion's pulse stands a little out of the noise of a sample, else ions could not be counted, and has a deviation of
// one sample where none is seen.
constexpr double usual_pulse_over_noise = 1.2;
// Digitizers are chosen to take so many samples of a pulse's full width at half maximum.
constexpr double usual_pulse_samples = 3.2;
constexpr double usual_height_spread = 0.5;  // of the pulses of an electron multiplier
constexpr double coarse_width_spread = 0.5;
constexpr double usual_width_spread = 0.05;

/// Keeps the largest `peaks_per_section` of every section, in ascending order of place.
template <class Item, class Place, class Size>
std::vector<Item> largest_by_section(std::span<const Item> items, double first, double end, Place place, Size size) {
    std::vector<std::vector<Item>> parts(sections);
    for (const auto& item : items) {
        const double part = (place(item) - first) / (end - first) * static_cast<double>(sections);
        auto& kept = parts[static_cast<std::size_t>(std::clamp(part, 0.0, static_cast<double>(sections) - 1))];
        auto larger = [&](const Item& left, const Item& right) { return size(left) > size(right); };
        if (kept.size() == peaks_per_section && !larger(item, kept.back())) continue;
        kept.insert(std::upper_bound(kept.begin(), kept.end(), item, larger), item);
        if (kept.size() > peaks_per_section) kept.pop_back();
    }
    std::vector<Item> all;
    for (auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    std::sort(all.begin(), all.end(), [&](const Item& left, const Item& right) { return place(left) < place(right); });
    return all;
}

/// The fit answers to late ions with a somewhat larger width than that of the ions in time. Only what the ions' arrival
/// makes of the width grows so, not the pulse of each.
SigmaLaw law_of(const WidthModel& model, const PeakTraits& traits) {
    const double slope = model.resolution_limit > 0 ? 1 / (2 * model.resolution_limit * fwhm_of_sigma) : 0;
    const double widened = 1 + fitted_width_of_tail * traits.tail_fraction;
    const double floor_ns = model.detector_fwhm_ns / fwhm_of_sigma;
    const double pulse_part = traits.ion_pulse_sigma_ns > 0 ? traits.tail_pulse_part : 1;
    return {widened * slope, floor_ns * (1 + pulse_part * (widened - 1))};
}

/// The part of the width that does not grow with flight time is the detector's. Where that part is not known a pulse
/// has the usual number of samples, but no peak is made of its pulse alone.
double likely_pulse_sigma_ns(const SigmaLaw& width, double interval_ns) {
    if (width.slope > 0 && width.floor_ns > 0) return width.floor_ns;
    return std::min(usual_pulse_samples * interval_ns / fwhm_of_sigma, 0.9 * width.floor_ns);
}

double likely_counts_per_ion(double noise, double pulse_sigma_samples) {
    return usual_pulse_over_noise * noise * std::sqrt(2 * std::numbers::pi) * std::max(1.0, pulse_sigma_samples);
}

}  // namespace

double SigmaLaw::sigma_ns(double time_ns) const {
    return std::sqrt(slope * slope * time_ns * time_ns + floor_ns * floor_ns);
}

bool SigmaLaw::agrees(const SigmaLaw& other, double start_ns, double end_ns, double part) const {
    for (const double time_ns : {start_ns, 0.5 * (start_ns + end_ns), end_ns})
        if (std::abs(other.sigma_ns(time_ns) / sigma_ns(time_ns) - 1) > part) return false;
    return true;
}

std::vector<TraitEstimation::Rise> TraitEstimation::strongest_rises(std::span<const std::size_t> busy_chunks) const {
    std::vector<Rise> rises;
    for (std::size_t i = 0; i < busy_chunks.size();) {
        const std::size_t first = busy_chunks[i];
        std::size_t end = std::min(first + scan_chunk, counts_.size());
        for (++i; i < busy_chunks.size() && busy_chunks[i] <= end && end - first < longest_rise; ++i)
            end = std::min(busy_chunks[i] + scan_chunk, counts_.size());
        const auto begin = counts_.begin();
        const auto top =
            std::max_element(begin + static_cast<std::ptrdiff_t>(first), begin + static_cast<std::ptrdiff_t>(end));
        // The middle of the flat top that saturation makes.
        auto plateau_end = top;
        while (plateau_end != counts_.end() && *plateau_end == *top) ++plateau_end;
        const auto place = static_cast<std::size_t>(top + (plateau_end - top) / 2 - begin);
        rises.push_back({place, *top - background_.at(static_cast<double>(place)).baseline});
    }
    const auto& blocks = background_.blocks();
    return largest_by_section<Rise>(
        rises, static_cast<double>(blocks.front().first), static_cast<double>(blocks.back().end),
        [](const Rise& rise) { return static_cast<double>(rise.top); }, [](const Rise& rise) { return rise.height; });
}

TraitEstimation::StandingOut TraitEstimation::standing_out(const Rise& rise, int left, int right) const {
    const double baseline = background_.at(static_cast<double>(rise.top)).baseline;
    StandingOut best{rise.height, rise.height, 1};
    double sum = rise.height;
    const int sides = left + right;
    for (std::size_t half = 1; static_cast<double>(half * static_cast<std::size_t>(sides)) < 1.6 * best.width + 8;
         ++half) {
        if (rise.top < half || rise.top + half >= counts_.size()) break;
        if (left) sum += counts_[rise.top - half] - baseline;
        if (right) sum += counts_[rise.top + half] - baseline;
        const double width = 1 + static_cast<double>(half) * sides;
        const double ratio = sum / std::sqrt(width);
        if (ratio > best.ratio) best = {ratio, sum, width};
    }
    return best;
}

bool TraitEstimation::ends_within(const Rise& rise, int direction, const StandingOut& box) const {
    // The few ions of a sample at the top can stand out from those of a wide peak on either side of it.
    const auto width = static_cast<std::ptrdiff_t>(box.width);
    const double baseline = background_.at(static_cast<double>(rise.top)).baseline;
    double beyond = 0;
    for (auto distance = width; distance <= 3 * width + 2; ++distance) {
        const auto place = static_cast<std::ptrdiff_t>(rise.top) + direction * distance;
        if (place < 0 || place >= static_cast<std::ptrdiff_t>(counts_.size())) break;
        beyond += counts_[static_cast<std::size_t>(place)] - baseline;
    }
    return beyond < 0.4 * box.sum;
}

TraitEstimation::WidthPoint TraitEstimation::coarse_width(const Rise& rise) const {
    // A box that reaches 1.4 deviations to either side of a Gaussian stands out most from white noise. One that reaches
    // much further to one side holds a neighbour; then the other side of a strong peak tells its width.
    const StandingOut both = standing_out(rise, 1, 1);
    const double noise = background_.at(static_cast<double>(rise.top)).noise;
    const double ions = std::max(1.0, both.sum / likely_counts_per_ion(noise, 0));
    double sigma = both.width / 2.8;
    const StandingOut left = standing_out(rise, 1, 0);
    const StandingOut right = standing_out(rise, 0, 1);
    const int direction = left.width < right.width ? -1 : 1;
    const StandingOut& narrow = direction < 0 ? left : right;
    const double narrow_sigma = (narrow.width - 0.5) / 1.4;
    if (ions > 200 && narrow_sigma < 0.4 * sigma && ends_within(rise, direction, narrow))
        sigma = narrow_sigma;
    else
        sigma = second_moment_sigma(rise, sigma);
    const double error = std::sqrt(0.01 + 2 / ions + std::pow(noise / both.ratio, 2));
    return {axis_.time_ns(static_cast<double>(rise.top)), std::max(0.5, sigma) * axis_.interval_ns, error,
            both.ratio / noise};
}

double TraitEstimation::second_moment_sigma(const Rise& rise, double sigma) const {
    const double baseline = background_.at(static_cast<double>(rise.top)).baseline;
    double centre = static_cast<double>(rise.top);
    double square = 0;
    for (const double reach_sigmas : {1.5, 3.0}) {
        const double first = std::max(0.0, std::ceil(centre - reach_sigmas * sigma));
        const double last =
            std::min(static_cast<double>(counts_.size()) - 1, std::floor(centre + reach_sigmas * sigma));
        double sum = 0;
        double moment = 0;
        double square_moment = 0;
        for (double i = first; i <= last; ++i) {
            const double above = counts_[static_cast<std::size_t>(i)] - baseline;
            sum += above;
            moment += above * (i - centre);
            square_moment += above * (i - centre) * (i - centre);
        }
        if (!(sum > 0)) return sigma;
        const double shift = std::clamp(moment / sum, -sigma, sigma);
        centre += shift;
        square = square_moment / sum - shift * shift;
    }
    return std::sqrt(std::clamp(square, 0.25 * sigma * sigma, 4 * sigma * sigma));
}

double TraitEstimation::saturation(std::span<const std::size_t> busy_chunks) const {
    // A detector's limit shows as its largest value several times in a row.
    std::int32_t largest = std::numeric_limits<std::int32_t>::min();
    std::size_t longest_run = 0;
    std::size_t run = 0;
    for (const auto chunk : busy_chunks) {
        const std::size_t end = std::min(chunk + scan_chunk, counts_.size());
        for (std::size_t i = chunk; i < end; ++i) {
            if (counts_[i] < largest) {
                run = 0;
                continue;
            }
            run = counts_[i] > largest ? 1 : run + 1;
            longest_run = counts_[i] > largest ? 1 : std::max(longest_run, run);
            largest = counts_[i];
        }
    }
    const BackgroundLevel level = background_.blocks().front().level;
    const double height = largest - level.baseline;
    const bool limited =
        (longest_run >= 3 && height > 20 * level.noise) || (longest_run == 2 && height > 500 * level.noise);
    return limited ? static_cast<double>(largest) : std::numeric_limits<double>::infinity();
}

double TraitEstimation::weighted_median(std::vector<WidthPoint>& points) {
    std::sort(points.begin(), points.end(),
              [](const WidthPoint& a, const WidthPoint& b) { return a.sigma_ns < b.sigma_ns; });
    auto weight = [](const WidthPoint& point) { return 1 / (point.relative_error * point.relative_error); };
    double total = 0;
    for (const auto& point : points) total += weight(point);
    double passed = 0;
    for (const auto& point : points) {
        passed += weight(point);
        if (passed >= 0.5 * total) return point.sigma_ns;
    }
    return points.back().sigma_ns;
}

PeakTraits TraitEstimation::coarse(std::span<const std::size_t> busy_chunks) {
    PeakTraits traits;
    traits.saturation_counts = options_.saturation_counts ? *options_.saturation_counts : saturation(busy_chunks);
    const double noise = background_.blocks().front().level.noise;
    traits.counts_per_ion = options_.counts_per_ion.value_or(likely_counts_per_ion(noise, 0));
    traits.ion_height_spread = options_.ion_height_spread.value_or(0);
    traits.ion_pulse_sigma_ns = options_.ion_pulse_fwhm_ns.value_or(0) / fwhm_of_sigma;
    traits.tail_fraction = options_.tail_fraction.value_or(0);
    traits.tail_pulse_part = options_.tail_pulse_part.value_or(0);
    if (options_.width) {
        traits.width = law_of(*options_.width, traits);
        return traits;
    }
    std::vector<WidthPoint> points;
    double most_standing = 0;
    for (const auto& rise : strongest_rises(busy_chunks)) {
        points.push_back(coarse_width(rise));
        most_standing = std::max(most_standing, points.back().standing);
    }
    // What hardly stands out is noise, unless there is nothing else.
    std::erase_if(points, [&](const WidthPoint& point) { return point.standing < std::min(8.0, most_standing); });
    traits.width = fit_width_law(points, {0, axis_.interval_ns});
    return traits;
}

std::vector<PeakShape> TraitEstimation::strongest_with_neighbours(std::span<const PeakShape> candidates) const {
    std::vector<std::size_t> places(candidates.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    const auto& blocks = background_.blocks();
    const auto strongest = largest_by_section<std::size_t>(
        places, static_cast<double>(blocks.front().first), static_cast<double>(blocks.back().end),
        [&](std::size_t i) { return candidates[i].centre; }, [&](std::size_t i) { return candidates[i].height; });
    std::vector<PeakShape> chosen;
    std::size_t next = 0;
    for (const auto place : strongest) {
        const double reach = neighbour_sigmas * candidates[place].sigma;
        std::size_t first = place;
        while (first > next && candidates[place].centre - candidates[first - 1].centre < reach) --first;
        std::size_t end = place + 1;
        while (end < candidates.size() && candidates[end].centre - candidates[place].centre < reach) ++end;
        for (next = std::max(next, first); next < end; ++next) chosen.push_back(candidates[next]);
    }
    return chosen;
}

PeakTraits TraitEstimation::refined(const PeakTraits& coarse, std::span<const PeakShape> candidates) {
    PeakTraits traits = coarse;
    if (options_.width && options_.counts_per_ion && options_.tail_fraction) return traits;
    if (candidates.empty()) return traits;
    const auto chosen = strongest_with_neighbours(candidates);
    if (!options_.width) traits.width_spread = coarse_width_spread;
    const auto measured = PeakMeasurement(counts_, axis_, background_, traits).measure(chosen);
    if (!options_.width) {
        std::vector<WidthPoint> points;
        for (const auto& peak : measured)
            if (peak.fit.valid)
                points.push_back({axis_.time_ns(peak.fit.shape.centre), peak.fit.own_sigma * axis_.interval_ns,
                                  peak.fit.sigma_error, 0});
        traits.width = fit_width_law(points, traits.width);
        traits.width_spread = usual_width_spread;
    }
    const IonStatistics statistics(counts_, background_, measured, traits, axis_.interval_ns);
    const double counted_per_ion = statistics.counts_per_ion();
    const bool found_pulses = !options_.ion_pulse_fwhm_ns && statistics.ions_are_pulses(counted_per_ion);
    if (found_pulses) {
        traits.ion_pulse_sigma_ns = likely_pulse_sigma_ns(traits.width, axis_.interval_ns);
        traits.ion_height_spread = options_.ion_height_spread.value_or(usual_height_spread);
    }
    // Under common pulses the fit takes up nearly all of what the ions' number scatters: the usual counts stand.
    const double pulse_samples = traits.ion_pulse_sigma_ns / axis_.interval_ns;
    if (!options_.counts_per_ion)
        traits.counts_per_ion = pulse_samples > 0
                                    ? likely_counts_per_ion(background_.blocks().front().level.noise, pulse_samples)
                                    : counted_per_ion;
    if (!options_.tail_fraction) {
        // Only what the arrival makes of a peak has late ions. One width does not tell that part from the pulse's; what
        // the late ions do to the peak is seen all the same.
        const double effect = std::max(0.15, traits.tail_effect(traits.width.floor_ns));
        traits.tail_fraction =
            traits.width.slope > 0 ? statistics.tail_fraction() : std::min(0.3, statistics.whole_tail() / effect);
    }
    if (options_.width) traits.width = law_of(*options_.width, traits);
    return traits;
}

SigmaLaw TraitEstimation::fit_width_law(std::vector<WidthPoint>& points, const SigmaLaw& otherwise) {
    if (points.empty()) return otherwise;
    SigmaLaw law{0, weighted_median(points)};
    const auto [earliest, latest] = std::minmax_element(
        points.begin(), points.end(), [](const WidthPoint& a, const WidthPoint& b) { return a.time_ns < b.time_ns; });
    const bool has_lever = points.size() >= 5 && latest->time_ns > 1.3 * earliest->time_ns;
    // Straight line of sigma^2 over t^2; points far from the last line count less.
    for (int round = 0; round < 6; ++round) {
        double weight_sum = 0, x_sum = 0, y_sum = 0, xx_sum = 0, xy_sum = 0;
        for (const auto& point : points) {
            const double expected = law.sigma_ns(point.time_ns);
            const double error = std::hypot(point.relative_error, usual_width_spread);
            const double deviation = std::abs(point.sigma_ns / expected - 1) / error;
            const double variance = 4 * error * error * expected * expected * expected * expected;
            const double weight = std::min(1.0, 2 / std::max(deviation, 1e-9)) / variance;
            const double x = point.time_ns * point.time_ns;
            const double y = point.sigma_ns * point.sigma_ns;
            weight_sum += weight;
            x_sum += weight * x;
            y_sum += weight * y;
            xx_sum += weight * x * x;
            xy_sum += weight * x * y;
        }
        const double determinant = weight_sum * xx_sum - x_sum * x_sum;
        double slope_square = has_lever ? (weight_sum * xy_sum - x_sum * y_sum) / determinant : 0;
        slope_square = std::clamp(slope_square, 0.0, xy_sum / xx_sum);
        const double floor_square = std::max(0.0, (y_sum - slope_square * x_sum) / weight_sum);
        law = {std::sqrt(slope_square), std::sqrt(floor_square)};
    }
    return law;
}

}  // namespace korvane
