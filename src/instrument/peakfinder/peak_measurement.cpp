#include "instrument/peakfinder/peak_measurement.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

constexpr double group_reach_sigmas = 10.5;  // an area reaches six, and a neighbour begins four before its centre
constexpr double loaded_sigmas = 6.5;
constexpr double late_reach_sigmas = 15;
constexpr double area_left_sigmas = 4;
constexpr double area_right_sigmas = 6;  // late ions
constexpr double tail_from_sigmas = 2;
constexpr double tail_to_sigmas = 6;
constexpr double least_sigma = 0.2;  // samples: all in one
constexpr int most_rounds = 12;
constexpr double baseline_samples = 500;  // that a local baseline rests on

/// Where two Gaussians are equally high between their centres.
double crossing(const PeakShape& left, const PeakShape& right) {
    auto log_ratio = [&](double place) {
        const double from_left = (place - left.centre) / left.sigma;
        const double from_right = (place - right.centre) / right.sigma;
        return std::log(left.height / right.height) + 0.5 * (from_right * from_right - from_left * from_left);
    };
    double low = left.centre;
    double high = right.centre;
    for (int i = 0; i < 30; ++i) {
        const double middle = 0.5 * (low + high);
        (log_ratio(middle) > 0 ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

/// Distance from the centre, in deviations, at which a peak is lost in the noise or has come down to 0.2 % of its top.
double visible_reach(double height, double noise) {
    const double level = std::max(0.002 * height, 0.5 * noise);
    return std::sqrt(2 * std::log(std::max(height / level, 3.0)));
}

}  // namespace

std::vector<FittedPeak> PeakMeasurement::measure(std::span<const PeakShape> candidates) {
    measured_.clear();
    measured_.reserve(candidates.size());
    for (std::size_t first = 0; first < candidates.size();) {
        std::size_t end = first + 1;
        auto joins = [&](std::size_t i) {
            const double reach = 0.5 * group_reach_sigmas * (candidates[i - 1].sigma + candidates[i].sigma);
            return candidates[i].centre - candidates[i - 1].centre < reach;
        };
        while (end < candidates.size() && joins(end)) ++end;
        measure_group(candidates.subspan(first, end - first));
        first = end;
    }
    return std::move(measured_);
}

void PeakMeasurement::measure_group(std::span<const PeakShape> candidates) {
    const std::size_t offset = measured_.size();
    measured_.resize(offset + candidates.size());
    const std::span<FittedPeak> group(measured_.data() + offset, candidates.size());
    for (std::size_t i = 0; i < group.size(); ++i) {
        group[i].fit.shape = candidates[i];
        group[i].alone = group.size() == 1;
    }
    fit_together(group);
    for (std::size_t i = 0; i < group.size(); ++i) complete(group, i);
}

void PeakMeasurement::fit_together(std::span<FittedPeak> group) {
    const int rounds = group.size() == 1 ? 1 : most_rounds;
    for (int round = 0; round < rounds; ++round) {
        double largest_move = 0;  // in standard errors
        for (std::size_t i = 0; i < group.size(); ++i) {
            const double before = group[i].fit.shape.centre;
            fit_one(group, i);
            const double error = std::max(group[i].fit.centre_error, 1e-9);
            largest_move = std::max(largest_move, std::abs(group[i].fit.shape.centre - before) / error);
        }
        if (largest_move < 0.05) break;
    }
}

void PeakMeasurement::load_samples(std::span<const FittedPeak> group, std::size_t index) {
    const PeakShape& shape = group[index].fit.shape;
    const double reach = loaded_sigmas * shape.sigma + 1;
    const auto last_sample = static_cast<double>(counts_.size() - 1);
    const double left = std::clamp(std::floor(shape.centre - reach), 0.0, last_sample);
    const double right = std::clamp(std::ceil(shape.centre + reach), left, last_sample);
    first_ = static_cast<std::ptrdiff_t>(left);
    const auto size = static_cast<std::size_t>(right - left) + 1;
    above_.resize(size);
    background_.subtract(counts_, static_cast<std::size_t>(first_), above_);
    if (std::isfinite(traits_.saturation_counts)) mark_saturated();
    others_.clear();
    if (group.size() == 1) return;
    others_.assign(size, 0.0);
    for (std::size_t i = index; i-- > 0;)
        if (!add_neighbour(group[i].fit.shape, left, right)) break;
    for (std::size_t i = index + 1; i < group.size(); ++i)
        if (!add_neighbour(group[i].fit.shape, left, right)) break;
}

void PeakMeasurement::mark_saturated() {
    for (std::size_t i = 0; i < above_.size(); ++i)
        if (counts_[static_cast<std::size_t>(first_) + i] >= traits_.saturation_counts) above_[i] = saturated;
}

bool PeakMeasurement::add_neighbour(const PeakShape& shape, double left, double right) {
    if (shape.centre + late_reach_sigmas * shape.sigma < left) return false;
    if (shape.centre - loaded_sigmas * shape.sigma > right) return false;
    const double tail = traits_.tail_fraction * traits_.tail_effect(shape.sigma * axis_.interval_ns);
    add_late_peak_samples(shape, tail, first_, others_);
    return true;
}

void PeakMeasurement::fit_one(std::span<FittedPeak> group, std::size_t index) {
    FittedPeak& peak = group[index];
    const PeakShape start = peak.fit.shape;
    load_samples(group, index);
    const BackgroundLevel level = background_.at(start.centre);
    peak.baseline = level.baseline;
    FitConditions conditions;
    conditions.noise = level.noise;
    conditions.ion_variance = traits_.ion_variance();
    conditions.pulse_sigma = traits_.ion_pulse_sigma_ns / axis_.interval_ns;
    conditions.tail_fraction = traits_.tail_fraction;
    conditions.tail_pulse_part = traits_.tail_pulse_part;
    conditions.expected_sigma = traits_.sigma_samples(axis_, start.centre);
    conditions.expected_spread = traits_.width_spread;
    const PeakSamples samples{first_, above_, others_};
    peak.fit = fitter_.fit(samples, start, conditions);
    const double moved = std::abs(peak.fit.shape.centre - start.centre);
    if (peak.fit.valid && moved <= 2 * conditions.expected_sigma) return;
    peak.fit = PeakFit();
    peak.fit.shape = start;
    fall_back(conditions, peak.fit);
}

void PeakMeasurement::fall_back(const FitConditions& conditions, PeakFit& fit) const {
    // The moments of what rises above a tenth of the top hold where a fit finds nothing to hold on to.
    const PeakShape start = fit.shape;
    const double reach = fit_reach * conditions.expected_sigma;
    const double last = static_cast<double>(above_.size()) - 1;
    const double from = std::clamp(std::ceil(start.centre - reach) - static_cast<double>(first_), 0.0, last);
    const double to = std::clamp(std::floor(start.centre + reach) - static_cast<double>(first_), from, last);
    const double limit = traits_.saturation_counts - background_.at(start.centre).baseline;
    auto own = [&](double i) {
        const auto place = static_cast<std::size_t>(i);
        return std::min(limit, above_[place]) - (others_.empty() ? 0 : others_[place]);
    };
    double top = 0;
    for (double i = from; i <= to; ++i) top = std::max(top, own(i));
    double sum = 0;
    double moment = 0;
    double square_moment = 0;
    for (double i = from; i <= to; ++i) {
        const double over = std::max(0.0, own(i) - 0.1 * top);
        sum += over;
        moment += over * i;
        square_moment += over * i * i;
    }
    fit.shape.height = top;
    double sigma = conditions.expected_sigma;
    if (sum > 0) {
        const double mean = moment / sum;
        fit.shape.centre = static_cast<double>(first_) + mean;
        sigma = std::sqrt(std::max(least_sigma * least_sigma, square_moment / sum - mean * mean));
    }
    fit.shape.sigma = sigma;
    fit.own_sigma = sigma;
    const double ions = std::max(1.0, sum / conditions.ion_variance);
    fit.centre_error = sigma * std::sqrt(2 / ions);
    fit.height_error = std::sqrt(2 / ions);
    fit.sigma_error = 0.3;
}

void PeakMeasurement::complete(std::span<FittedPeak> group, std::size_t index) {
    FittedPeak& peak = group[index];
    const PeakShape& shape = peak.fit.shape;
    const BackgroundLevel level = background_.at(shape.centre);
    const double reach = visible_reach(shape.height, level.noise) * shape.sigma;
    peak.start = shape.centre - reach;
    peak.end = shape.centre + reach;
    if (index > 0)
        peak.start = std::min(shape.centre, std::max(peak.start, crossing(group[index - 1].fit.shape, shape)));
    if (index + 1 < group.size())
        peak.end = std::max(shape.centre, std::min(peak.end, crossing(shape, group[index + 1].fit.shape)));
    if (group.size() > 1) load_samples(group, index);
    sum_samples(level, peak);
}

void PeakMeasurement::sum_samples(const BackgroundLevel& level, FittedPeak& peak) {
    const PeakShape& shape = peak.fit.shape;
    const double lowest = std::ceil(shape.centre - tail_to_sigmas * shape.sigma);
    const double highest = std::floor(shape.centre + area_right_sigmas * shape.sigma);
    const auto from = std::max(first_, static_cast<std::ptrdiff_t>(lowest));
    const auto last = first_ + static_cast<std::ptrdiff_t>(above_.size()) - 1;
    const auto to = std::min(last, static_cast<std::ptrdiff_t>(highest));
    if (to < from) return;
    const auto size = static_cast<std::size_t>(to - from + 1);
    model_.resize(std::max(model_.size(), size));
    gaussian_samples(shape, from, std::span(model_.data(), size));

    const auto offset = static_cast<std::size_t>(from - first_);
    const double limit = traits_.saturation_counts - level.baseline;
    const double step = 1 / shape.sigma;
    double u = (static_cast<double>(from) - shape.centre) * step;
    double ions = 0;
    double shared_samples = 0;
    const double first_of_peak = (peak.start - shape.centre) * step;
    const double last_of_peak = (peak.end - shape.centre) * step;
    for (std::size_t i = 0; i < size; ++i, u += step) {
        if (u >= first_of_peak && u <= last_of_peak && above_[offset + i] > level.noise) ++peak.samples;
        const double total = model_[i] + (others_.empty() ? 0 : others_[offset + i]);
        const double share = total > model_[i] ? model_[i] / total : 1;
        double above = above_[offset + i];
        if (above == saturated) above = std::max(limit, total);
        above *= share;
        const double excess = above - share * total;
        peak.late_excess += u > tail_from_sigmas ? excess : u < -tail_from_sigmas ? -excess : 0;
        if (u < -area_left_sigmas) continue;
        peak.area += above;
        ions += share * std::max(above, 0.0);
        shared_samples += share;
    }
    const double quiet = level.noise * level.noise;
    peak.area_error =
        std::sqrt(traits_.ion_variance() * ions + quiet * shared_samples * (1 + shared_samples / baseline_samples));
}

}  // namespace korvane
