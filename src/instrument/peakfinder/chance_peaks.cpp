#include <array>
#include <numbers>

#include "instrument/peakfinder/search_steps.h"

namespace korvane {

using namespace method;

namespace {

/// Counts that no peak explains, and their sums.
class Residual {
public:
    /// Peaks of less counts than `least_area` are taken for unexplained.
    void load(const SearchContext& context, std::span<const FittedPeak> peaks, const SampleRange& range,
              double least_area = -std::numeric_limits<double>::infinity()) {
        range_ = range;
        sums_.resize(range.size() + 1);
        sums_[0] = 0;
        const std::span<double> left(sums_.begin() + 1, sums_.end());
        context.background.subtract(range.first, left);
        for (const FittedPeak& peak : peaks) {
            if (peak.area < least_area) continue;
            PeakShape shape = peak.fit.shape;
            const auto reached = context.samples_between(shape.centre - loaded_sigmas * shape.sigma,
                                                         shape.centre + late_reach_sigmas * shape.sigma);
            const Index first = std::max(range.first, reached.first), end = std::min(range.end, reached.end);
            if (first >= end) continue;
            shape.height = -shape.height;
            add_late_peak_samples(shape, context.late_part(shape.sigma), first,
                                  left.subspan(first - range.first, end - first));
        }
        for (Index i = range.first; std::isfinite(context.model.saturation_counts) && i < range.end; ++i)
            if (context.is_saturated(i)) left[i - range.first] = 0;
        // Two at a time, since every addition waits for the last.
        std::size_t i = 0;
        for (; i + 2 < sums_.size(); i += 2) {
            const double two = sums_[i + 1] + sums_[i + 2];
            sums_[i + 1] += sums_[i];
            sums_[i + 2] = sums_[i] + two;
        }
        if (i + 1 < sums_.size()) sums_[i + 1] += sums_[i];
    }

    struct Stretch {
        double sum = 0, samples = 0;
    };
    Stretch between(double from, double to) const {
        const auto place = [this](double sample) {
            return std::clamp<Index>(ceil_of(sample) - range_.first, 0, range_.size());
        };
        const Index first = place(from), end = std::max(first, place(to));
        return {sums_[end] - sums_[first], static_cast<double>(end - first)};
    }

private:
    SampleRange range_;
    std::vector<double> sums_;  // over the samples before each
};

/// Those of the peaks in ascending order that reach into a range about one of them.
std::span<const FittedPeak> reaching(std::span<const FittedPeak> peaks, std::size_t index, double from, double to) {
    const auto place = [](const PeakShape& shape, double sigmas) { return shape.centre + sigmas * shape.sigma; };
    std::size_t first = index, end = index + 1;
    while (first > 0 && place(peaks[first - 1].fit.shape, late_reach_sigmas) >= from) --first;
    while (end < peaks.size() && place(peaks[end].fit.shape, -loaded_sigmas) < to) ++end;
    return peaks.subspan(first, end - first);
}

/// What the strong peaks have about them in common: long tails, wings. Counts that no peak explains, for a distance of
/// a deviation and an area of one count, in bands that begin at so many deviations; from the peak outward they only
/// fall, so that neighbours, with a valley between, are none of it.
class CommonWings {
public:
    CommonWings(const SearchContext& context, std::span<const FittedPeak> peaks) : context_(context), peaks_(peaks) {
        for (const FittedPeak& peak : peaks)
            if (peak.fit.valid && peak.area > 0) strong_.push_back(&peak);
        const auto number = std::min(strong_.size(), most_winged_peaks);
        std::ranges::partial_sort(strong_, strong_.begin() + static_cast<Index>(number), std::greater(),
                                  &FittedPeak::area);
        strong_.resize(number);
        if (strong_.empty()) return;
        const double least_area =
            std::max(winged_part * strong_.front()->area, winged_ions * context.model.counts_per_ion);
        std::erase_if(strong_, [&](const FittedPeak* peak) { return peak->area < least_area; });
        if (strong_.size() < least_winged_peaks) return;
        // Farther out only where the wings reach so far.
        for (const std::size_t bands : wing_steps) {
            measure(bands);
            if (sides_[0][bands - 1] <= 0 && sides_[1][bands - 1] <= 0) break;
        }
    }

    bool is_seen() const { return sides_[0][0] > 0 || sides_[1][0] > 0; }

    /// Counts a sample that the wings of peaks much stronger than `peak` make in its place.
    double about(std::size_t index) const {
        const double centre = peaks_[index].fit.shape.centre;
        double sum = 0;
        for (const int direction : {-1, 1})
            for (Index i = static_cast<Index>(index) + direction; i >= 0 && i < std::ssize(peaks_); i += direction) {
                const PeakShape& shape = peaks_[i].fit.shape;
                const double u = std::abs(centre - shape.centre) / shape.sigma;
                if (u > wing_far_sigmas) break;
                if (peaks_[i].area < wing_of_area * peaks_[index].area) continue;
                sum += peaks_[i].area / shape.sigma * density(sides_[direction < 0], u);
            }
        return sum;
    }

private:
    using Bands = std::array<double, wing_bands>;
    static double band_begin(std::size_t band) { return wing_from_sigmas * std::pow(wing_band_ratio, band); }
    static double band_middle(std::size_t band) { return band_begin(band) * std::sqrt(wing_band_ratio); }

    /// The bands to either side, as far as `number`.
    void measure(std::size_t number) {
        std::array<std::array<std::vector<double>, wing_bands>, 2> densities;
        std::array<Bands, 2> variances{};
        Residual residual;
        for (const FittedPeak* peak : strong_) {
            const PeakShape& shape = peak->fit.shape;
            const double reach = band_begin(number) * shape.sigma;
            const double from = shape.centre - reach, to = shape.centre + reach;
            residual.load(context_, reaching(peaks_, static_cast<std::size_t>(peak - peaks_.data()), from, to),
                          context_.samples_between(from, to), unexplained_part * peak->area);
            const double noise_variance = context_.noise_variance(shape.centre);
            for (std::size_t band = 0; band < number; ++band)
                for (const int side : {0, 1}) {
                    const double near = band_begin(band) * shape.sigma, far = band_begin(band + 1) * shape.sigma;
                    const auto [sum, samples] = side == 0 ? residual.between(shape.centre - far, shape.centre - near)
                                                          : residual.between(shape.centre + near, shape.centre + far);
                    if (samples < (far - near) / 2) continue;
                    const double unit = peak->area * samples / shape.sigma;
                    densities[side][band].push_back(sum / unit);
                    variances[side][band] += (context_.model.ion_variance() * std::max(0.0, sum) +
                                              noise_variance * samples * (1 + samples / baseline_samples)) /
                                             (unit * unit);
                }
        }
        for (const int side : {0, 1}) {
            double most = densities[side][0].size() < least_winged_peaks ? 0 : std::numeric_limits<double>::infinity();
            for (std::size_t band = 0; band < number; ++band) {
                auto& values = densities[side][band];
                if (values.size() < least_winged_peaks) {
                    // Farther out, as a Lorentzian falls.
                    most /= wing_band_ratio * wing_band_ratio;
                } else {
                    const auto middle = values.begin() + (std::ssize(values) - 1) / 2;
                    std::ranges::nth_element(values, middle);
                    const double error = std::sqrt(variances[side][band]) / static_cast<double>(values.size());
                    const double least = band == 0 ? wing_errors : far_wing_errors;
                    most = *middle > least * error ? std::min(most, *middle) : 0;
                }
                sides_[side][band] = most;
            }
        }
    }

    /// Between the middles of the bands a power of the distance.
    static double density(const Bands& bands, double u) {
        const double place = std::log(u / band_middle(0)) / std::log(wing_band_ratio);
        if (place <= 0) return bands.front();
        const auto band = static_cast<std::size_t>(place);
        if (band + 1 >= wing_bands) return bands.back() * std::pow(band_middle(wing_bands - 1) / u, 2);
        if (bands[band + 1] <= 0) return place - static_cast<double>(band) < 0.5 ? bands[band] : 0;
        return bands[band] * std::pow(bands[band + 1] / bands[band], place - static_cast<double>(band));
    }

    const SearchContext& context_;
    std::span<const FittedPeak> peaks_;
    std::vector<const FittedPeak*> strong_;
    std::array<Bands, 2> sides_{};  // before a peak, after it
};

/// Counts a sample that lie about a peak, less what noise alone may make of them.
double level_about(const Residual& residual, const PeakShape& shape, double noise, double counts_per_ion) {
    const auto beside = [&](int direction, double near, double far) {
        return direction < 0 ? residual.between(shape.centre - far * shape.sigma, shape.centre - near * shape.sigma)
                             : residual.between(shape.centre + near * shape.sigma, shape.centre + far * shape.sigma);
    };
    const auto level = [&](const Residual::Stretch& part, double deviations, double own) {
        if (part.samples == 0) return 0.0;
        return (part.sum - own - deviations * noise * std::sqrt(part.samples)) / part.samples;
    };
    double highest = 0;
    std::array<double, 2 * far_sides> far{};
    for (std::size_t i = 0; i < far.size(); ++i) {
        const int direction = i % 2 == 0 ? -1 : 1;
        const double from = middle_sigmas + static_cast<double>(i / 2) * far_side_sigmas;
        far[i] = level(beside(direction, from, from + far_side_sigmas), far_deviations, 0);
        if (i >= 2) continue;
        const auto near = beside(direction, middle_sigmas, near_side_sigmas);
        highest = std::max(highest, level(near, near_deviations, own_side_ions * counts_per_ion));
    }
    std::ranges::nth_element(far, far.begin() + far_sides - 1);
    return std::max(highest, far[far_sides - 1]);
}

/// Whether the counts of a number of samples are more than chance makes of a level.
bool exceeds(const SearchContext& context, double counts, double level, double samples, double noise_variance) {
    const double ion_variance = context.model.ion_variance();
    const double variance = (noise_variance + ion_variance * level) * samples;
    // Few ions come in clumps: the quantile of a skewed distribution, by Cornish and Fisher.
    const double third_moment = ion_variance * ion_variance * level * samples;
    const double quantile = least_signal_to_noise;
    return counts - level * samples >
           quantile * std::sqrt(variance) + (quantile * quantile - 1) / 6 * third_moment / variance;
}

/// Whether the ions of a peak are more than chance makes of those that lie about it.
bool stands_out(const SearchContext& context, const Residual& residual, const PeakShape& shape) {
    const double noise_variance = context.noise_variance(shape.centre);
    const double level = level_about(residual, shape, std::sqrt(noise_variance), context.model.counts_per_ion);
    if (level == 0) return true;
    const double reach = middle_sigmas * shape.sigma;
    const auto [left_over, samples] = residual.between(shape.centre - reach, shape.centre + reach);
    return exceeds(context, shape.counts() + left_over, level, samples, noise_variance);
}

/// Much wider than the law beside a much stronger peak, in the very place of a stronger one, or in the flank of one
/// whose top is cut off.
bool is_wing(const SearchContext& context, std::span<const FittedPeak> peaks, std::size_t index) {
    const FittedPeak& peak = peaks[index];
    const double expected = context.expected_sigma(peak.fit.shape.centre);
    const double widening = peak.fit.own_sigma / expected - 1;
    const bool is_wide =
        widening > wing_width - 1 &&
        widening > wing_width_deviations * std::hypot(peak.fit.sigma_error, context.model.width_spread);
    const auto is_wing_of = [&](const FittedPeak& other, double distance) {
        const bool cut = other.fit.clipped;
        if (distance <= (cut && peak.fit.clipped ? clipped_place_sigmas : same_place_sigmas))
            return other.area > peak.area;
        if (cut && distance <= clipped_wing_sigmas) return other.area > clipped_wing_of_area * peak.area;
        return is_wide && other.area > wing_of_area * peak.area;
    };
    const double reach = is_wide ? wing_reach_sigmas : clipped_wing_sigmas;
    for (const int direction : {-1, 1})
        for (Index i = index + direction; i >= 0 && i < std::ssize(peaks); i += direction) {
            const double distance = std::abs(peaks[i].fit.shape.centre - peak.fit.shape.centre) / expected;
            if (distance > reach) break;
            if (is_wing_of(peaks[i], distance)) return true;
        }
    return false;
}

/// Few ions among others that are scattered about them, and wings of stronger peaks.
void mark_chance_peaks(const SearchContext& context, std::span<FittedPeak> peaks) {
    for (std::size_t i = 0; i < peaks.size(); ++i)
        if (is_wing(context, peaks, i)) peaks[i].stands_out = false;
    const CommonWings wings(context, peaks);
    for (std::size_t i = 0; i < peaks.size() && wings.is_seen(); ++i) {
        const PeakShape& shape = peaks[i].fit.shape;
        const double level = wings.about(i);
        if (level > 0 && !exceeds(context, shape.counts(), level, 2 * middle_sigmas * shape.sigma,
                                  context.noise_variance(shape.centre)))
            peaks[i].stands_out = false;
    }
    const auto is_weak = [&](const FittedPeak& peak) {
        return peak.stands_out && peak.area <= surrounded_ions_of_fit * context.model.counts_per_ion;
    };
    const auto reach = [](const FittedPeak& peak) {
        return (middle_sigmas + static_cast<double>(far_sides) * far_side_sigmas) * peak.fit.shape.sigma + 1;
    };
    Residual residual;
    for (std::size_t first = 0; first < peaks.size();) {
        if (!is_weak(peaks[first])) {
            ++first;
            continue;
        }
        const double from = peaks[first].fit.shape.centre - reach(peaks[first]);
        double to = peaks[first].fit.shape.centre + reach(peaks[first]);
        std::size_t end = first + 1;
        for (; end < peaks.size() && to - from < piece_samples; ++end) {
            const double centre = peaks[end].fit.shape.centre;
            if (centre - reach(peaks[end]) > to) break;
            if (is_weak(peaks[end])) to = std::max(to, centre + reach(peaks[end]));
        }
        residual.load(context, reaching(peaks, first, from, to), context.samples_between(from, to));
        for (; first < end; ++first)
            if (is_weak(peaks[first])) peaks[first].stands_out = stands_out(context, residual, peaks[first].fit.shape);
    }
}

}  // namespace

void remove_chance_peaks(const SearchContext& context, std::vector<FittedPeak>& peaks) {
    mark_chance_peaks(context, peaks);
    std::vector<FittedPeak> kept;
    kept.reserve(peaks.size());
    for (std::size_t first = 0, end = 0; first < peaks.size(); first = end) {
        const std::size_t group = kept.size();
        for (end = first;
             end < peaks.size() && (end == first || share_samples(peaks[end - 1].fit.shape, peaks[end].fit.shape));
             ++end)
            if (peaks[end].stands_out) kept.push_back(peaks[end]);
        const auto standing = std::span(kept).subspan(group);
        if (standing.empty() || standing.size() == end - first) continue;
        std::vector<PeakShape> shapes;
        for (const FittedPeak& peak : standing) shapes.push_back(peak.fit.shape);
        std::ranges::sort(shapes, {}, &PeakShape::centre);
        std::ranges::copy(measure_peaks(context, shapes), standing.begin());
    }
    peaks = std::move(kept);
}

}  // namespace korvane
