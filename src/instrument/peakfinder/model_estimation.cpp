#include <Eigen/Core>
#include <Eigen/LU>
#include <array>
#include <numbers>
#include <utility>

#include "instrument/peakfinder/ion_statistics.h"
#include "korvane/peak_finder.h"

namespace korvane {

using namespace method;

namespace {

/// Counts of one ion whose pulse stands a little out of the noise.
double usual_counts_per_ion(double noise, double pulse_sigma_samples) {
    return usual_pulse_over_noise * noise * std::sqrt(2 * std::numbers::pi) * std::max(1.0, pulse_sigma_samples);
}

struct WidthPoint {
    double time_ns;
    double sigma_ns;
    double relative_error;
};

/// Samples about an apex.
struct Box {
    double ratio;  // sum over square root of width
    double sum;
    double width;  // samples
};

double weighted_median(std::vector<WidthPoint>& points) {
    std::ranges::sort(points, {}, &WidthPoint::sigma_ns);
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

/// Tells a width before anything is known of the peaks. `apex`: a whole sample and its height.
class LoneApex {
public:
    LoneApex(const SearchContext& context, const PeakShape& apex)
        : context_(context), apex_(apex), place_(apex.centre), level_(context.background.at(apex.centre)) {}

    /// With the deviations of the noise that it stands out by.
    std::pair<WidthPoint, double> width() const {
        const Box both = best_box(1, 1);
        const double ions = std::max(1.0, both.sum / usual_counts_per_ion(level_.noise, 0));
        // A box that reaches much further to one side holds a neighbour; then the other side of a strong peak tells its
        // width.
        double sigma = both.width / (2 * box_reach_sigmas);
        const double half_height_sigma = width_at_half_height(both.width) / fwhm_per_sigma;
        if (half_height_sigma < one_peak_box_part * sigma) sigma = half_height_sigma;
        const Box left = best_box(1, 0);
        const Box right = best_box(0, 1);
        const int direction = left.width < right.width ? -1 : 1;
        const Box& narrow = direction < 0 ? left : right;
        const double narrow_sigma = (narrow.width - 0.5) / box_reach_sigmas;
        const bool one_sided = ions > one_sided_ions && narrow_sigma < one_sided_part * sigma;
        if (half_height_sigma > sigma)
            sigma = one_sided && ends_within(narrow, direction) ? narrow_sigma : moment_sigma(sigma);
        const double error = std::sqrt(coarse_width_variance + 2 / ions + std::pow(level_.noise / both.ratio, 2));
        return {{context_.axis.time_ns(apex_.centre), std::max(least_coarse_sigma, sigma) * context_.axis.interval_ns,
                 error},
                both.ratio / level_.noise};
    }

private:
    bool exists(Index place) const { return place >= 0 && place < std::ssize(context_.counts); }
    double above(Index place) const { return context_.counts[place] - level_.baseline; }

    /// The box about the apex, reaching to the sides that are 1, that stands out most from the noise.
    Box best_box(int left, int right) const {
        Box best{apex_.height, apex_.height, 1};
        double sum = apex_.height;
        const int sides = left + right;
        for (Index half = 1; half * sides < box_growth * best.width + box_margin_samples; ++half) {
            if (!exists(place_ - half) || !exists(place_ + half)) break;
            if (left) sum += above(place_ - half);
            if (right) sum += above(place_ + half);
            const double width = 1 + static_cast<double>(half * sides);
            const double ratio = sum / std::sqrt(width);
            if (ratio > best.ratio) best = {ratio, sum, width};
        }
        return best;
    }

    /// Of sums of so many samples that half of the top is no chance; at most that of a box of the given width.
    double width_at_half_height(double box_width) const {
        const double needed_counts = half_height_ions * usual_counts_per_ion(level_.noise, 0);
        for (Index half = 0; 4 * half + 2 < static_cast<Index>(box_width); ++half) {
            auto sum_about = [&](Index place) {
                double sum = 0;
                for (Index i = place - half; i <= place + half; ++i) sum += exists(i) ? above(i) : 0;
                return sum;
            };
            const auto samples = static_cast<double>(2 * half + 1);
            const double top = sum_about(place_);
            if (top < std::max(needed_counts, half_height_deviations * level_.noise * std::sqrt(samples))) continue;
            double width = 0;
            for (const Index direction : {-1, 1}) {
                double before = top;
                for (Index distance = 1; distance < static_cast<Index>(box_width); ++distance) {
                    const double sum = sum_about(place_ + direction * distance);
                    if (sum < 0.5 * top) {
                        width += static_cast<double>(distance) - (0.5 * top - sum) / (before - sum);
                        break;
                    }
                    before = sum;
                    if (distance + 1 == static_cast<Index>(box_width)) return box_width;
                }
            }
            const double sums_square = (samples * samples - 1) / 12 * fwhm_per_sigma * fwhm_per_sigma;
            return std::sqrt(std::max(1.0, width * width - sums_square));
        }
        return box_width;
    }

    /// Whether a box from the apex in the direction holds most of what lies there. The few ions of a sample at the top
    /// can stand out from those of a wide peak on either side of it.
    bool ends_within(const Box& box, int direction) const {
        double beyond = 0;
        for (Index distance = box.width; distance <= beyond_box_widths * box.width + 2; ++distance)
            if (exists(place_ + direction * distance)) beyond += above(place_ + direction * distance);
        return beyond < beyond_box_part * box.sum;
    }

    double moment_sigma(double sigma) const {
        double centre = apex_.centre;
        double square = 0;
        for (const double reach : moment_reaches_sigmas) {
            const auto range = context_.samples_between(centre - reach * sigma, centre + reach * sigma);
            const Moments moments = moments_about(centre, range, [this](Index i) { return above(i); });
            if (!(moments.sum > 0)) return sigma;
            const double shift = std::clamp(moments.mean, -sigma, sigma);
            centre += shift;
            square = moments.square - shift * shift;
        }
        const double most_change = most_moment_change * most_moment_change;
        return std::sqrt(std::clamp(square, sigma * sigma / most_change, most_change * sigma * sigma));
    }

    const SearchContext& context_;
    const PeakShape& apex_;
    Index place_;
    BackgroundLevel level_;
};

/// Straight line of sigma^2 over t^2, points far from it counting less; `otherwise` where there are none.
WidthLaw fit_width_law(std::vector<WidthPoint> points, const WidthLaw& otherwise) {
    if (points.empty()) return otherwise;
    WidthLaw law{0, weighted_median(points)};
    const auto [earliest, latest] = std::ranges::minmax(points, {}, &WidthPoint::time_ns);
    const bool has_lever = points.size() >= least_law_points && latest.time_ns > least_law_lever * earliest.time_ns;
    for (int round = 0; round < law_rounds; ++round) {
        Eigen::Matrix2d normal = Eigen::Matrix2d::Zero();
        Eigen::Vector2d right = Eigen::Vector2d::Zero();
        for (const auto& point : points) {
            const double expected = law.sigma_ns(point.time_ns);
            const double error =
                std::sqrt(point.relative_error * point.relative_error + usual_width_spread * usual_width_spread);
            const double deviation = std::max(std::abs(point.sigma_ns / expected - 1) / error, least_deviation);
            const double variance = 4 * error * error * expected * expected * expected * expected;
            const double weight = std::min(1.0, law_outlier_deviations / deviation) / variance;
            const Eigen::Vector2d row(1, point.time_ns * point.time_ns);
            normal += weight * row * row.transpose();
            right += weight * point.sigma_ns * point.sigma_ns * row;
        }
        double slope_square = 0;
        if (has_lever) slope_square = (normal(0, 0) * right[1] - normal(0, 1) * right[0]) / normal.determinant();
        slope_square = std::clamp(slope_square, 0.0, right[1] / normal(1, 1));
        const double floor_square = std::max(0.0, (right[0] - slope_square * normal(0, 1)) / normal(0, 0));
        law = {std::sqrt(slope_square), std::sqrt(floor_square)};
    }
    return law;
}

/// Those that hardly stand out of the noise left out, unless there are no others.
std::vector<WidthPoint> coarse_widths(const SearchContext& context, std::span<const PeakShape> apexes) {
    std::vector<std::pair<WidthPoint, double>> widths;
    for (const auto& apex : apexes) widths.push_back(LoneApex(context, apex).width());
    double least_deviations = 0;
    for (const auto& [point, deviations] : widths) least_deviations = std::max(least_deviations, deviations);
    least_deviations = std::min(least_deviations, coarse_signal_to_noise);
    std::vector<WidthPoint> points;
    for (const auto& [point, deviations] : widths)
        if (deviations >= least_deviations) points.push_back(point);
    return points;
}

/// Indexes of the highest of every section of the background, ascending.
std::vector<std::size_t> highest_by_section(const SearchContext& context, std::span<const PeakShape> peaks) {
    const auto first = static_cast<double>(context.background.blocks().front().first);
    const auto end = static_cast<double>(context.background.blocks().back().end);
    std::array<std::vector<std::size_t>, axis_sections> sections;  // each from the highest down
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const double place = (peaks[i].centre - first) / (end - first) * axis_sections;
        auto& section = sections[static_cast<std::size_t>(std::clamp(place, 0.0, axis_sections - 1.0))];
        const auto lower = std::ranges::find_if(section, [&](auto j) { return peaks[j].height < peaks[i].height; });
        if (lower == section.end() && section.size() == peaks_per_section) continue;
        section.insert(lower, i);
        section.resize(std::min(section.size(), peaks_per_section));
    }
    std::vector<std::size_t> highest;
    for (const auto& section : sections) highest.insert(highest.end(), section.begin(), section.end());
    std::ranges::sort(highest);
    return highest;
}

/// The fit answers to late ions with a somewhat larger width than that of the ions in time. Only what the ions' arrival
/// makes of the width grows so, not the pulse of each.
WidthLaw law_of(const WidthModel& width, const PeakModel& model) {
    const double slope = width.resolution_limit > 0 ? 1 / (2 * width.resolution_limit * fwhm_per_sigma) : 0;
    const double widened = 1 + fitted_width_of_tail * model.tail_fraction;
    const double floor_ns = width.detector_fwhm_ns / fwhm_per_sigma;
    const double pulse_part = model.ion_pulse_sigma_ns > 0 ? model.tail_pulse_part : 1;
    return {widened * slope, floor_ns * (1 + pulse_part * (widened - 1))};
}

/// The part of the width that does not grow with flight time is the detector's. Where that part is not known a pulse
/// has the usual number of samples.
double likely_pulse_sigma_ns(const WidthLaw& width, double interval_ns) {
    if (width.slope > 0 && width.floor_ns > 0) return width.floor_ns;
    return std::min(usual_pulse_samples * interval_ns / fwhm_per_sigma, most_pulse_part * width.floor_ns);
}

/// The highest samples of the stretches above the noise, for the highest stretches of every section.
std::vector<PeakShape> strongest_apexes(const SearchContext& context, std::span<const Index> chunks) {
    const auto& counts = context.counts;
    std::vector<PeakShape> apexes;
    for (std::size_t i = 0; i < chunks.size();) {
        const Index first = chunks[i];
        Index end = std::min(first + chunk_samples, std::ssize(counts));
        for (++i; i < chunks.size() && chunks[i] <= end && end - first < longest_stretch_samples; ++i)
            end = std::min(chunks[i] + chunk_samples, std::ssize(counts));
        const auto top =
            std::find(counts.begin() + first, counts.end(), std::ranges::max(counts.subspan(first, end - first)));
        // The middle of the flat top that saturation makes.
        const auto top_end = std::find_if(top, counts.end(), [&](std::int32_t value) { return value != *top; });
        const auto centre = static_cast<double>(top + (top_end - top) / 2 - counts.begin());
        apexes.push_back({*top - context.background.at(centre).baseline, centre, 0});
    }
    std::vector<PeakShape> strongest;
    for (const auto i : highest_by_section(context, apexes)) strongest.push_back(apexes[i]);
    return strongest;
}

std::vector<PeakShape> strongest_with_neighbours(const SearchContext& context, std::span<const PeakShape> candidates) {
    std::vector<PeakShape> chosen;
    std::size_t next = 0;
    for (const auto place : highest_by_section(context, candidates)) {
        const PeakShape& strong = candidates[place];
        const double reach = model_neighbour_sigmas * strong.sigma;
        std::size_t first = place;
        while (first > next && strong.centre - candidates[first - 1].centre < reach) --first;
        std::size_t end = place + 1;
        while (end < candidates.size() && candidates[end].centre - strong.centre < reach) ++end;
        for (next = std::max(next, first); next < end; ++next) chosen.push_back(candidates[next]);
    }
    return chosen;
}

/// The detector's limit.
double saturation_counts(const SearchContext& context, std::span<const Index> chunks) {
    std::int32_t largest = std::numeric_limits<std::int32_t>::min();
    Index longest_run = 0, run = 0;
    for (const auto chunk : chunks) {
        const Index end = std::min<Index>(chunk + chunk_samples, std::ssize(context.counts));
        for (Index i = chunk; i < end; ++i) {
            const std::int32_t value = context.counts[i];
            run = value < largest ? 0 : value > largest ? 1 : run + 1;
            if (value > largest) longest_run = 0;
            largest = std::max(largest, value);
            longest_run = std::max(longest_run, run);
        }
    }
    const BackgroundLevel level = context.background.blocks().front().level;
    const double deviations = (largest - level.baseline) / level.noise;
    const bool limited = (longest_run >= saturated_run && deviations > saturated_deviations) ||
                         (longest_run == 2 && deviations > saturated_pair_deviations);
    return limited ? static_cast<double>(largest) : std::numeric_limits<double>::infinity();
}

}  // namespace

PeakModel coarse_model(const SearchContext& context, const PeakFinderOptions& options, std::span<const Index> chunks) {
    PeakModel model;
    const double noise = context.background.blocks().front().level.noise;
    model.saturation_counts =
        options.saturation_counts ? *options.saturation_counts : saturation_counts(context, chunks);
    model.counts_per_ion = options.counts_per_ion.value_or(usual_counts_per_ion(noise, 0));
    model.ion_height_spread = options.ion_height_spread.value_or(0);
    model.ion_pulse_sigma_ns = options.ion_pulse_fwhm_ns.value_or(0) / fwhm_per_sigma;
    model.tail_fraction = options.tail_fraction.value_or(0);
    model.tail_pulse_part = options.tail_pulse_part.value_or(0);
    model.width = options.width ? law_of(*options.width, model)
                                : fit_width_law(coarse_widths(context, strongest_apexes(context, chunks)),
                                                {0, context.axis.interval_ns});
    return model;
}

PeakModel refined_model(const SearchContext& context, const PeakFinderOptions& options,
                        std::span<const PeakShape> candidates) {
    if (options.width && options.counts_per_ion && options.tail_fraction) return context.model;
    if (candidates.empty()) return context.model;
    SearchContext refined = context;
    PeakModel& model = refined.model;
    const double interval_ns = context.axis.interval_ns;
    if (!options.width) model.width_spread = coarse_width_spread;
    const auto peaks = measure_peaks(refined, strongest_with_neighbours(context, candidates));
    if (!options.width) {
        std::vector<WidthPoint> points;
        for (const auto& peak : peaks) {
            const PeakFit& fit = peak.fit;
            if (!fit.valid) continue;
            const double widening = 1 + narrowing_of_few * fit.sigma_error * fit.sigma_error;
            points.push_back(
                {context.axis.time_ns(fit.shape.centre), widening * fit.own_sigma * interval_ns, fit.sigma_error});
        }
        model.width = fit_width_law(points, model.width);
        model.width_spread = usual_width_spread;
    }
    const double whole_tail = estimated_tail_fraction(refined, peaks);
    const IonCounts ions = count_ions(refined, peaks, whole_tail);
    if (!options.ion_pulse_fwhm_ns && ions.are_pulses) {
        model.ion_pulse_sigma_ns = likely_pulse_sigma_ns(model.width, interval_ns);
        model.ion_height_spread = options.ion_height_spread.value_or(usual_height_spread);
    }
    if (!options.counts_per_ion) {
        // Under common pulses the fit takes up nearly all of what the ions' number scatters: the usual counts stand.
        const double noise = context.background.blocks().front().level.noise;
        const double pulse_samples = model.ion_pulse_sigma_ns / interval_ns;
        model.counts_per_ion = pulse_samples > 0 ? usual_counts_per_ion(noise, pulse_samples) : ions.counts_per_ion;
    }
    if (!options.tail_fraction) {
        // Only what the arrival makes of a peak has late ions. One width does not tell that part from the pulse's; what
        // the late ions do to the peak is seen all the same.
        const double effect = std::max(least_common_tail_effect, model.tail_effect(model.width.floor_ns));
        model.tail_fraction = model.width.slope > 0 ? estimated_tail_fraction(refined, peaks)
                                                    : std::min(largest_tail, whole_tail / effect);
    }
    if (options.width) model.width = law_of(*options.width, model);
    return model;
}

}  // namespace korvane
