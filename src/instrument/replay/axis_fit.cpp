#include "instrument/replay/axis_fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

#include "instrument/replay/axis_steps.h"
#include "instrument/replay/binary_array.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

constexpr double nowhere = std::numeric_limits<double>::infinity();

using Powers = std::vector<int>;
/// Those that a law may have beside the square, whose coefficients are A and B, and how many, C to H.
constexpr std::array further_powers{0, 3, 4, 5, 6, 7, 8};
constexpr std::size_t most_terms = 6;

/// Points of an axis: flight times and m/z.
struct Points {
    Eigen::ArrayXd times_ns, mz;
};

/// A law and how well it meets the points.
struct FittedLaw {
    std::shared_ptr<const SquareLawCalibration> calibration;  // null where the fit fails
    double root_mean_square_ns = nowhere;                     // residual in mass over the slope of the law
};

/// Intercept and slope of the straight line through points.
Eigen::Vector2d straight_line(const Eigen::ArrayXd& x, const Eigen::ArrayXd& y) {
    Eigen::MatrixXd columns(x.size(), 2);
    columns << Eigen::VectorXd::Ones(x.size()), x.matrix();
    return least_squares(columns, y.matrix());
}

/// Fits m = (a (x - b))^2 + sum of c x^p, with x = t / last time, by Gauss and Newton. Weighted by one over the slope,
/// so that all deviations in time count alike.
FittedLaw fit_law(const Points& points, const Powers& powers) {
    constexpr int iterations = 5;
    const auto term_count = static_cast<Eigen::Index>(powers.size());
    const double scale_ns = points.times_ns[points.times_ns.size() - 1];
    const Eigen::ArrayXd x = points.times_ns / scale_ns;
    const Eigen::Vector2d line = straight_line(x, points.mz.sqrt());  // of the roots, which follow A (t - B)
    double a = line[1], b = -line[0] / line[1];
    const Eigen::ArrayXd weights = 1 / (2 * a * points.mz.sqrt());
    Eigen::MatrixXd derivatives(x.size(), 2 + term_count);  // by a, b and the coefficients
    for (Eigen::Index k = 0; k < term_count; ++k)
        derivatives.col(2 + k) = weights * x.pow(powers[static_cast<std::size_t>(k)]);
    Eigen::VectorXd terms = Eigen::VectorXd::Zero(term_count), residuals;
    for (int i = 0;; ++i) {
        if (!std::isfinite(a) || !std::isfinite(b) || !(a > 0)) return {};
        const Eigen::ArrayXd distance = x - b;
        residuals =
            (weights * (points.mz - (a * distance).square())).matrix() - derivatives.rightCols(term_count) * terms;
        if (i == iterations) break;
        derivatives.col(0) = weights * 2 * a * distance.square();
        derivatives.col(1) = weights * -2 * a * a * distance;
        const Eigen::VectorXd changes = least_squares(derivatives, residuals);
        a += changes[0];
        b += changes[1];
        terms += changes.tail(term_count);
    }
    CalibrationCoefficients c{.A = a / scale_ns, .B = b * scale_ns};
    const std::array<double*, most_terms> slots{&c.C, &c.D, &c.E, &c.F, &c.G, &c.H};
    std::vector<std::int32_t> flags(further_powers.back() + 1);
    for (std::size_t k = 0; k < powers.size(); ++k) {
        flags[static_cast<std::size_t>(powers[k])] = 1;
        *slots[k] = terms[static_cast<Eigen::Index>(k)] / std::pow(scale_ns, powers[k]);
    }
    return {std::make_shared<SquareLawCalibration>(c, VariantArray<std::int32_t>(std::move(flags))),
            residuals.norm() / std::sqrt(static_cast<double>(x.size())) * scale_ns};
}

TimeScale choose_scale(const KnownTimes& known, double steps_before, std::int64_t last_step) {
    constexpr double longest_flight_ns = 150000;
    const double steps = steps_before + static_cast<double>(last_step);
    double interval_ns = 0.25;
    for (const double slower_ns : {0.5, 1.0})
        if (steps * slower_ns <= longest_flight_ns) interval_ns = slower_ns;
    interval_ns = known.interval_ns.value_or(interval_ns);
    return {known.first_sample_ns.value_or(steps_before * interval_ns), interval_ns};
}

/// At most a few thousand points, evenly out of all and with both ends: more do not make the law better.
Points fit_points(std::span<const double> mz, const std::vector<std::int64_t>& steps, const TimeScale& scale) {
    constexpr std::size_t most = 4000;
    const std::size_t count = std::min(most, mz.size());
    Points points{Eigen::ArrayXd(count), Eigen::ArrayXd(count)};
    for (std::size_t k = 0; k < count; ++k) {
        const std::size_t i = k * (mz.size() - 1) / (count - 1);
        const auto place = static_cast<Eigen::Index>(k);
        points.times_ns[place] = scale.origin_ns + static_cast<double>(steps[i]) * scale.interval_ns;
        points.mz[place] = mz[i];
    }
    return points;
}

/// The law with one more power, the one that leaves least.
Powers best_addition(const Points& points, const Powers& powers) {
    Powers best;
    double least_ns = 0;
    for (const int power : further_powers) {
        if (std::ranges::find(powers, power) != powers.end()) continue;
        Powers tried = powers;
        tried.insert(std::ranges::upper_bound(tried, power), power);
        const double left_ns = fit_law(points, tried).root_mean_square_ns;
        if (!best.empty() && left_ns >= least_ns) continue;
        best = tried;
        least_ns = left_ns;
    }
    return best;
}

[[noreturn]] void fail_unmet(std::span<const double> mz, const SamplePositions& positions,
                             const RecordingPlace& place) {
    const double deviation = positions.worst_deviation_steps;
    place.fail(
        "m/z array: no flight-time law meets the axis, so that flight times would mean nothing: under the best one, "
        "sample " +
        std::to_string(positions.worst_sample) + " at m/z [" + number_text(mz[positions.worst_sample]) + "] lies " +
        (std::isfinite(deviation) ? number_text(deviation) + " steps off" : "at no time after its neighbour"));
}

double rounding_of_32_bit(double value) {
    const auto rounded = static_cast<float>(value);
    return 0.5 * (std::nextafter(rounded, std::numeric_limits<float>::max()) - rounded);
}

}  // namespace

SamplePositions locate_samples(std::span<const double> mz, const MassTimeCalibration& calibration,
                               const TimeScale& scale, double limit_steps) {
    const bool is_32_bit = fits_32_bit(mz);
    const auto mass_at = [&](std::int64_t step) {
        return calibration.mass_from_time(scale.origin_ns + static_cast<double>(step) * scale.interval_ns);
    };
    const auto deviation_at = [&](double mass, std::int64_t step) {
        const double here = mass_at(step), mass_step = mass_at(step + 1) - here;
        const double off = std::abs(mass - here) - (is_32_bit ? rounding_of_32_bit(mass) : 0);
        return mass_step > 0 ? std::max(0.0, off) / mass_step : nowhere;
    };
    const auto nearest_step = [&](double mass) {
        try {
            return std::round((calibration.time_from_mass(mass) - scale.origin_ns) / scale.interval_ns);
        } catch (const Error&) {
            return nowhere;  // no flight time: the mass does not lie on this axis
        }
    };
    SamplePositions positions;
    positions.steps.reserve(mz.size());
    for (std::size_t i = 0; i < mz.size() && positions.met(limit_steps); ++i) {
        std::int64_t step = i == 0 ? 0 : positions.steps.back() + 1;
        double deviation = i == 0 ? nowhere : deviation_at(mz[i], step);
        if (deviation > largest_deviation_steps) {
            const double nearest = nearest_step(mz[i]);
            const bool ascends = std::abs(nearest) < 1e15 && (i == 0 || nearest >= static_cast<double>(step));
            step = ascends ? static_cast<std::int64_t>(nearest) : step;
            deviation = ascends ? deviation_at(mz[i], step) : nowhere;
        }
        positions.steps.push_back(step);
        if (deviation <= positions.worst_deviation_steps && i > 0) continue;
        positions.worst_deviation_steps = deviation;
        positions.worst_sample = i;
    }
    return positions;
}

AxisFit fit_axis(std::span<const double> mz, const KnownTimes& known, const RecordingPlace& place) {
    constexpr std::size_t fewest_samples = 3;
    constexpr std::size_t samples_a_term = 8;  // a law with enough terms meets any few samples
    if (mz.size() < fewest_samples)
        place.fail("m/z array: " + std::to_string(mz.size()) +
                   " samples are too few to find the flight-time law of the axis");
    std::vector<double> roots(mz.size());
    std::ranges::transform(mz, roots.begin(), [](double mass) { return std::sqrt(mass); });
    const std::vector<std::int64_t> steps = count_steps(roots, largest_spectrum_samples);
    const auto places = Eigen::Map<const Eigen::Array<std::int64_t, Eigen::Dynamic, 1>>(
        steps.data(), static_cast<Eigen::Index>(steps.size()));
    const Eigen::Vector2d line =
        straight_line(places.cast<double>(), Eigen::Map<const Eigen::ArrayXd>(roots.data(), places.size()));
    const TimeScale scale = choose_scale(known, line[0] / line[1], steps.back());
    const Points points = fit_points(mz, steps, scale);
    std::vector<AxisFit> tried;
    for (Powers powers;; powers = best_addition(points, powers)) {
        if (const auto law = fit_law(points, powers).calibration)
            tried.push_back({law, scale, locate_samples(mz, *law, scale)});
        if (!tried.empty() && tried.back().positions.met()) return tried.back();
        if (powers.size() == std::min(most_terms, mz.size() / samples_a_term)) break;
    }
    if (tried.empty()) place.fail("m/z array: no flight-time law meets the axis");
    for (AxisFit& fit : tried) fit.positions = locate_samples(mz, *fit.calibration, scale, largest_misfit_steps);
    const AxisFit& nearest =
        *std::ranges::min_element(tried, {}, [](const AxisFit& fit) { return fit.positions.worst_deviation_steps; });
    if (!nearest.positions.met(largest_misfit_steps)) fail_unmet(mz, nearest.positions, place);
    return nearest;
}

}  // namespace korvane::replay
