#include "instrument/peakfinder/search_steps.h"

namespace korvane {

using namespace method;

namespace {

/// Where two Gaussians are equally high between their centres.
double crossing(const PeakShape& left, const PeakShape& right) {
    const double log_of_heights = std::log(left.height / right.height);
    auto log_ratio = [&](double place) {
        const double from_left = (place - left.centre) / left.sigma;
        const double from_right = (place - right.centre) / right.sigma;
        return log_of_heights + 0.5 * (from_right * from_right - from_left * from_left);
    };
    double low = left.centre;
    double high = right.centre;
    for (int i = 0; i < crossing_steps; ++i) {
        const double middle = 0.5 * (low + high);
        (log_ratio(middle) > 0 ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

/// Peaks within reach of one another, which are fitted in turn, each to what the others leave.
class PeakGroup {
public:
    explicit PeakGroup(const SearchContext& context) : context_(context) {}

    void measure(std::span<FittedPeak> peaks) {
        peaks_ = peaks;
        candidates_.clear();
        for (const auto& peak : peaks) candidates_.push_back(peak.fit.shape.centre);
        samples_.others.clear();
        fit_together();
        for (std::size_t i = 0; i < peaks_.size(); ++i) complete(i);
    }

private:
    /// Each again while a neighbour within reach has moved since.
    void fit_together() {
        if (peaks_.size() == 1) return fit_one(0);
        models_.assign(peaks_.size(), {});
        std::vector<bool> disturbed(peaks_.size(), true);
        for (int round = 0; round < most_rounds; ++round) {
            bool moved = false;
            for (std::size_t i = 0; i < peaks_.size(); ++i) {
                if (!disturbed[i]) continue;
                disturbed[i] = false;
                const PeakFit& fit = peaks_[i].fit;
                const double before = fit.shape.centre;
                fit_one(i);
                const double error = std::max(fit.centre_error / fit.misfit, least_deviation);
                if (round > 0 && std::abs(fit.shape.centre - before) < settled_move_errors * error) continue;
                moved = true;
                for (const int direction : {-1, 1})
                    for (Index j = i + direction; j >= 0 && j < std::ssize(peaks_); j += direction) {
                        const double distance = std::abs(peaks_[j].fit.shape.centre - fit.shape.centre);
                        if (distance > group_reach_sigmas * fit.shape.sigma) break;
                        disturbed[j] = true;
                    }
            }
            if (!moved) break;
        }
    }

    /// The samples of a peak as far as it reaches, kept until it moves.
    struct Modelled {
        PeakShape shape;
        SampleRange range;
        std::vector<double> counts;
    };

    const Modelled& modelled(std::size_t index) {
        const PeakShape& shape = peaks_[index].fit.shape;
        Modelled& model = models_[index];
        if (model.shape == shape && model.range.size() > 0) return model;
        model.shape = shape;
        model.range = context_.samples_between(std::floor(shape.centre - loaded_sigmas * shape.sigma),
                                               std::ceil(shape.centre + late_reach_sigmas * shape.sigma));
        model.counts.assign(model.range.size(), 0.0);
        add_late_peak_samples(shape, context_.late_part(shape.sigma), model.range.first, model.counts);
        return model;
    }

    void load_samples(std::size_t index) {
        const PeakShape& shape = peaks_[index].fit.shape;
        const double reach = loaded_sigmas * shape.sigma + 1;
        const auto range = context_.samples_between(std::floor(shape.centre - reach), std::ceil(shape.centre + reach));
        samples_.first = range.first;
        samples_.above.resize(range.size());
        context_.background.subtract(range.first, samples_.above);
        if (std::isfinite(context_.model.saturation_counts))
            for (Index i = range.first; i < range.end; ++i)
                if (context_.is_saturated(i)) samples_.above[i - range.first] = saturated;
        if (peaks_.size() == 1) return;
        samples_.others.assign(range.size(), 0.0);
        for (const int direction : {-1, 1}) {
            for (Index i = index + direction; i >= 0 && i < std::ssize(peaks_); i += direction) {
                const Modelled& other = modelled(i);
                const Index from = std::max(range.first, other.range.first);
                const Index to = std::min(range.end, other.range.end);
                if (from >= to) break;
                for (Index k = from; k < to; ++k)
                    samples_.others[k - range.first] += other.counts[k - other.range.first];
            }
        }
    }

    void fit_one(std::size_t index) {
        FittedPeak& peak = peaks_[index];
        const PeakShape start = peak.fit.shape;
        load_samples(index);
        samples_.level = context_.background.at(start.centre);
        peak.baseline = samples_.level.baseline;
        auto fit = fit_gaussian(context_, samples_, start);
        if (fit && fit->clipped) fit = fit_flanks(fit->shape);
        const double sigma = context_.expected_sigma(start.centre);
        const double limit = context_.model.saturation_counts - peak.baseline;
        const bool kept = fit && std::abs(fit->shape.centre - candidates_[index]) <= most_move_sigmas * sigma &&
                          !(fit->clipped && fit->shape.height < least_clipped_height * limit);
        peak.fit = kept ? *fit : fit_by_moments(start, sigma);
    }

    /// Of the ions in time, what the late ones add taken away; told as the Gaussian that a fit to both would find.
    std::optional<PeakFit> fit_flanks(PeakShape shape) {
        const double known = context_.late_part(shape.sigma);
        const double tail = known > 0 ? known : usual_tail;
        const double widening = 1 + fitted_width_of_tail * tail;
        auto with_late = [&](PeakShape in_time) {
            in_time.centre += fitted_centre_of_tail * tail * in_time.sigma;
            in_time.sigma *= widening;
            in_time.height /= (1 - tail) * widening * (1 + fitted_area_of_tail * tail);
            return in_time;
        };
        SearchContext context = context_;
        context.model.width.slope /= widening;
        context.model.width.floor_ns /= widening;
        const std::vector<double> neighbours = samples_.others;
        values_.resize(samples_.above.size());
        std::optional<PeakFit> fit;
        shape.sigma /= widening;
        for (int round = 0; round < flank_rounds; ++round) {
            samples_.others = neighbours;
            samples_.others.resize(samples_.above.size(), 0.0);
            add_late_peak_samples(with_late(shape), tail, samples_.first, samples_.others);
            gaussian_samples(shape, samples_.first, values_);
            for (std::size_t i = 0; i < values_.size(); ++i) samples_.others[i] -= values_[i];
            fit = fit_gaussian(context, samples_, shape);
            if (!fit) break;
            shape = fit->shape;
        }
        samples_.others = neighbours;
        if (!fit) return fit;
        const double limit = context_.model.saturation_counts - context_.background.at(shape.centre).baseline;
        fit->centre_error *= 1 + flank_error * std::max(0.0, 1 - limit / shape.height);
        fit->shape = with_late(shape);
        fit->own_sigma *= widening;
        return fit;
    }

    /// The moments of what rises above a part of the top hold where a fit finds nothing to hold on to.
    PeakFit fit_by_moments(const PeakShape& start, double expected_sigma) const {
        const double limit = context_.model.saturation_counts - context_.background.at(start.centre).baseline;
        auto own = [&](Index sample) {
            const Index i = sample - samples_.first;
            return std::min(limit, samples_.above[i]) - samples_.other(i);
        };
        const double reach = fit_reach_sigmas * expected_sigma;
        auto range = context_.samples_between(start.centre - reach, start.centre + reach);
        range.first = std::max(range.first, samples_.first);
        range.end = std::min(range.end, samples_.first + std::ssize(samples_.above));
        double top = 0;
        bool clipped = false;
        for (Index i = range.first; i < range.end; ++i) {
            top = std::max(top, own(i));
            clipped = clipped || samples_.above[i - samples_.first] == saturated;
        }
        const auto above_level = [&](Index i) { return std::max(0.0, own(i) - moment_level_part * top); };
        const Moments moments = moments_about(static_cast<double>(samples_.first), range, above_level);
        PeakFit fit{{top, start.centre, expected_sigma}};
        if (moments.sum > 0) {
            const double square = moments.square - moments.mean * moments.mean;
            fit.shape.centre = samples_.first + moments.mean;
            fit.shape.sigma = std::sqrt(std::max(least_moment_sigma * least_moment_sigma, square));
        }
        const double ions = std::max(1.0, moments.sum / context_.model.ion_variance());
        fit.own_sigma = fit.shape.sigma;
        fit.clipped = clipped;
        fit.height_error = std::sqrt(moment_variance / ions);
        fit.centre_error = fit.shape.sigma * fit.height_error;
        fit.sigma_error = moment_width_error;
        return fit;
    }

    void complete(std::size_t index) {
        FittedPeak& peak = peaks_[index];
        const PeakShape& shape = peak.fit.shape;
        const BackgroundLevel level = context_.background.at(shape.centre);
        // Lost in the noise, or a small part of the top.
        const double lowest = std::max(end_height_part * shape.height, end_noise_part * level.noise);
        const double reach = std::sqrt(2 * std::log(std::max(shape.height / lowest, least_end_ratio))) * shape.sigma;
        peak.start = shape.centre - reach;
        peak.end = shape.centre + reach;
        if (index > 0)
            peak.start = std::min(shape.centre, std::max(peak.start, crossing(peaks_[index - 1].fit.shape, shape)));
        if (index + 1 < peaks_.size())
            peak.end = std::max(shape.centre, std::min(peak.end, crossing(shape, peaks_[index + 1].fit.shape)));
        for (std::size_t other = index > 0 ? index - 1 : 1; other <= index + 1 && other < peaks_.size(); other += 2)
            if (std::abs(peaks_[other].fit.shape.centre - shape.centre) < overlapped_sigmas * shape.sigma)
                peak.overlapped = true;
        if (peaks_.size() > 1) load_samples(index);
        sum_samples(level, peak);
    }

    void sum_samples(const BackgroundLevel& level, FittedPeak& peak) {
        const PeakShape& shape = peak.fit.shape;
        const Index last = samples_.first + std::ssize(samples_.above) - 1;
        const Index from = std::max(samples_.first, ceil_of(shape.centre - side_to_sigmas * shape.sigma));
        const Index to = std::min(last, floor_of(shape.centre + area_right_sigmas * shape.sigma));
        if (to < from) return;
        values_.resize(to - from + 1);
        gaussian_samples(shape, from, values_);
        const double limit = context_.model.saturation_counts - level.baseline;
        const double step = 1 / shape.sigma;
        const double start_u = (peak.start - shape.centre) * step, end_u = (peak.end - shape.centre) * step;
        // Two samples at a time; beyond the last one lies nothing, far from the peak.
        Pair u = (Pair{0, 1} + (static_cast<double>(from) - shape.centre)) * step;
        Pair area{}, ions{}, shared_samples{}, late_excess{};
        const Pair none{}, one{1, 1};
        const auto two = [&](const auto& of, Index i) { return Pair{of[i], u[1] > -gone_sigmas ? of[i + 1] : 0}; };
        for (Index i = from; i <= to; i += 2, u += 2 * step) {
            if (i == to) u[1] = -gone_sigmas;
            Pair above = two(samples_.above, i - samples_.first);
            const Pair model = two(values_, i - from);
            const auto counted = (u >= start_u) & (u <= end_u) & (above > level.noise);
            peak.samples -= static_cast<std::int32_t>(counted[0] + counted[1]);
            const Pair total = samples_.others.empty() ? model : model + two(samples_.others, i - samples_.first);
            const Pair share = total > model ? model / total : one;
            above = above == saturated ? (total > limit ? total : none + limit) : above;
            above *= share;
            const Pair excess = above - share * total;
            late_excess += u > side_from_sigmas ? excess : u < -side_from_sigmas ? -excess : none;
            const Pair in_area = u < -area_left_sigmas ? none : one;
            area += in_area * above;
            ions += in_area * share * (above > none ? above : none);
            shared_samples += in_area * share;
        }
        peak.area = area[0] + area[1];
        peak.late_excess = late_excess[0] + late_excess[1];
        const double noise_variance = level.noise * level.noise;
        const double samples = shared_samples[0] + shared_samples[1];
        peak.area_error = std::sqrt(context_.model.ion_variance() * (ions[0] + ions[1]) +
                                    noise_variance * samples * (1 + samples / baseline_samples));
    }

    const SearchContext& context_;
    std::span<FittedPeak> peaks_;
    std::vector<Modelled> models_;
    std::vector<double> candidates_;  // centres
    PeakSamples samples_;             // of the peak that is being fitted
    std::vector<double> values_;
};

}  // namespace

bool share_samples(const PeakShape& left, const PeakShape& right) {
    return right.centre - left.centre < 0.5 * group_reach_sigmas * (left.sigma + right.sigma);
}

std::vector<FittedPeak> measure_peaks(const SearchContext& context, std::span<const PeakShape> candidates) {
    std::vector<FittedPeak> peaks;
    peaks.reserve(candidates.size());
    PeakGroup group(context);
    for (const auto& candidate : candidates) peaks.push_back({.fit = {.shape = candidate}});
    for (std::size_t first = 0; first < peaks.size();) {
        std::size_t end = first + 1;
        while (end < peaks.size() && share_samples(candidates[end - 1], candidates[end])) ++end;
        for (std::size_t i = first; i < end; ++i) peaks[i].alone = end - first == 1;
        group.measure(std::span(peaks).subspan(first, end - first));
        first = end;
    }
    return peaks;
}

}  // namespace korvane
