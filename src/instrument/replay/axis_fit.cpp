#include "instrument/replay/axis_fit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "instrument/replay/axis_law.h"
#include "instrument/replay/axis_steps.h"
#include "instrument/replay/least_squares.h"
#include "instrument/replay/recording.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

using Positions = std::vector<std::int64_t>;

/// Where the straight line through the square roots is 0, in steps before the first sample.
double steps_before_first_sample(const std::vector<double>& roots, const Positions& steps) {
    std::vector<std::vector<double>> columns(2, std::vector<double>(roots.size(), 1));
    const auto last = static_cast<double>(steps.back());
    for (std::size_t i = 0; i < roots.size(); ++i) columns[1][i] = static_cast<double>(steps[i]) / last;
    const std::vector<double> line = least_squares(columns, roots);
    return line[0] / line[1] * last;
}

TimeScale choose_scale(const KnownTimes& known, double steps_before, std::int64_t last_step) {
    constexpr double longest_flight_ns = 150000;
    TimeScale scale;
    if (known.interval_ns) {
        scale.interval_ns = *known.interval_ns;
    } else {
        for (const double interval_ns : {0.25, 0.5, 1.0})
            if (interval_ns == 0.25 ||
                (steps_before + static_cast<double>(last_step)) * interval_ns <= longest_flight_ns)
                scale.interval_ns = interval_ns;
    }
    scale.origin_ns = known.first_sample_ns.value_or(steps_before * scale.interval_ns);
    return scale;
}

/// At most a few thousand points, evenly out of all and with both ends: more do not make the law better.
std::vector<AxisPoint> fit_points(std::span<const double> mz, const Positions& steps, const TimeScale& scale) {
    constexpr std::size_t most = 4000;
    const std::size_t count = std::min(most, mz.size());
    std::vector<AxisPoint> points;
    points.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t i = k * (mz.size() - 1) / (count - 1);
        points.push_back({scale.origin_ns + static_cast<double>(steps[i]) * scale.interval_ns, mz[i]});
    }
    return points;
}

/// The law with one more power, the one that leaves least.
std::vector<std::int32_t> best_addition(const std::vector<AxisPoint>& points, const std::vector<std::int32_t>& powers) {
    std::vector<std::int32_t> best;
    double least_ns = 0;
    for (const std::int32_t power : axis_powers) {
        if (std::find(powers.begin(), powers.end(), power) != powers.end()) continue;
        std::vector<std::int32_t> tried = powers;
        tried.insert(std::upper_bound(tried.begin(), tried.end(), power), power);
        const double left_ns = fit_axis_law(points, tried).root_mean_square_ns;
        if (!best.empty() && left_ns >= least_ns) continue;
        best = tried;
        least_ns = left_ns;
    }
    return best;
}

/// A law with enough terms meets any few samples.
std::size_t most_terms(std::size_t sample_count) {
    constexpr std::size_t samples_a_term = 8;
    return std::min(largest_term_count, sample_count / samples_a_term);
}

/// A law that meets all samples, or the one with most terms.
AxisFit fit_with_terms(std::span<const double> mz, const Positions& steps, const TimeScale& scale) {
    const std::vector<AxisPoint> points = fit_points(mz, steps, scale);
    AxisFit fit;
    for (std::vector<std::int32_t> powers;; powers = best_addition(points, powers)) {
        const AxisLaw law = fit_axis_law(points, powers);
        if (law.calibration) fit = {law.calibration, scale, locate_samples(mz, *law.calibration, scale)};
        if ((fit.calibration && fit.positions.met()) || powers.size() == most_terms(mz.size())) break;
    }
    return fit;
}

[[noreturn]] void fail_unmet(std::span<const double> mz, const SamplePositions& positions,
                             const RecordingPlace& place) {
    const double deviation = positions.worst_deviation_steps;
    place.fail("m/z array: no flight-time law meets the axis to " + number_text(largest_deviation_steps) +
               " of a step: under the best one, sample " + std::to_string(positions.worst_sample) + " at m/z [" +
               number_text(mz[positions.worst_sample]) + "] lies " +
               (std::isfinite(deviation) ? number_text(deviation) + " steps off" : "at no time after its neighbour"));
}

}  // namespace

AxisFit fit_axis(std::span<const double> mz, const KnownTimes& known, const RecordingPlace& place) {
    constexpr std::size_t fewest_samples = 3;
    if (mz.size() < fewest_samples)
        place.fail("m/z array: " + std::to_string(mz.size()) +
                   " samples are too few to find the flight-time law of the axis");
    std::vector<double> roots;
    roots.reserve(mz.size());
    std::transform(mz.begin(), mz.end(), std::back_inserter(roots), [](double mass) { return std::sqrt(mass); });
    const Positions steps = count_steps(roots, largest_spectrum_samples);
    const TimeScale scale = choose_scale(known, steps_before_first_sample(roots, steps), steps.back());
    AxisFit fit = fit_with_terms(mz, steps, scale);
    if (!fit.calibration || !fit.positions.met()) fail_unmet(mz, fit.positions, place);
    return fit;
}

}  // namespace korvane::replay
