#include "instrument/replay/axis_fit.h"

#include <Eigen/QR>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "instrument/replay/binary_array.h"
#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr std::int64_t hole = 0;  // a distance whose steps are not counted yet

/// Smallest typical distance among the first samples; holes only make distances larger.
double first_step(std::span<const double> roots) {
    std::vector<double> distances;
    for (std::size_t i = 1; i < std::min<std::size_t>(roots.size(), 201); ++i)
        distances.push_back(roots[i] - roots[i - 1]);
    const auto tenth = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 10);
    std::nth_element(distances.begin(), tenth, distances.end());
    return *tenth;
}

/// Marks distances of a single step with 1, following the step as it drifts; all others are holes.
std::vector<std::int64_t> single_steps(std::span<const double> roots) {
    constexpr double follow = 0.05;
    double step = first_step(roots);
    std::vector<std::int64_t> counts(roots.size() - 1, hole);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const double distance = roots[i + 1] - roots[i];
        if (distance > 1.5 * step) continue;
        counts[i] = 1;
        step += follow * (distance - step);
    }
    return counts;
}

/// The coefficients of `columns` whose sum comes nearest to `values` in the sense of least squares. By
/// orthogonalisation, so that columns that are nearly alike do no harm; one that depends on others gets the coefficient
/// 0.
Eigen::VectorXd least_squares(const Eigen::MatrixXd& columns, const Eigen::VectorXd& values) {
    constexpr double dependent = 1e-13;
    const Eigen::VectorXd lengths = columns.colwise().norm().cwiseMax(std::numeric_limits<double>::min());
    Eigen::ColPivHouseholderQR<Eigen::MatrixXd> solver(columns * lengths.cwiseInverse().asDiagonal());
    solver.setThreshold(dependent);
    return solver.solve(values).cwiseQuotient(lengths);
}

/// A stretch without holes.
struct Stretch {
    double from, to;  // roots
    double steps;
};

class HoleCounter {
public:
    HoleCounter(std::span<const double> roots, std::int64_t limit)
        : roots_(roots), limit_(static_cast<double>(limit)), counts_(single_steps(roots)) {
        for (std::size_t i = 0; i < counts_.size(); ++i)
            if (counts_[i] == hole) holes_.push_back(i);
        predictions_left_ = 16 * holes_.size() + 1000;
    }

    std::vector<std::int64_t> count() {
        for (const double allowed : {0.05, 0.1, 0.2, 0.4, infinite})
            while (fill_certain(predictions_left_ > holes_.size() ? allowed : infinite)) {
            }
        std::vector<std::int64_t> positions(roots_.size());
        for (std::size_t i = 0; i < counts_.size(); ++i) positions[i + 1] = positions[i] + counts_[i];
        return positions;
    }

private:
    /// Fills the holes whose number is certain enough; true when there may be more of them now.
    bool fill_certain(double allowed) {
        predictions_left_ -= std::min(predictions_left_, holes_.size());
        const auto filled = std::remove_if(holes_.begin(), holes_.end(), [&](std::size_t at) {
            const auto [steps, uncertainty] = predict(at);
            if (uncertainty > allowed) return false;
            counts_[at] = std::llround(std::clamp(steps, 1.0, limit_));
            return true;
        });
        const bool any = filled != holes_.end();
        holes_.erase(filled, holes_.end());
        return any && !holes_.empty();
    }

    /// The steps of a hole and how uncertain they are: predicted twice, with polynomials of neighbouring degree, whose
    /// difference, and the distance from a whole number, tell that.
    std::pair<double, double> predict(std::size_t at) const {
        std::vector<Stretch> near;
        collect(at, at, -1, near);
        collect(at, at + 1, +1, near);
        if (near.empty()) return {1, infinite};
        const auto count = static_cast<Eigen::Index>(near.size());
        const Eigen::Index degree = std::clamp<Eigen::Index>(count / 3, 1, 4);
        const double steps = steps_in_hole(at, near, degree);
        const double other = steps_in_hole(at, near, degree > 1 ? degree - 1 : std::min<Eigen::Index>(count, 2));
        const double uncertainty = std::abs(steps - other) + std::abs(steps - std::round(steps));
        return std::isfinite(uncertainty) ? std::pair(steps, uncertainty) : std::pair(1.0, infinite);
    }

    /// Stretches to one side, the longer and the farther the longer the hole is.
    void collect(std::size_t at, std::size_t from, int direction, std::vector<Stretch>& near) const {
        constexpr std::size_t most = 24;
        constexpr std::size_t enough = 6;
        const double width = roots_[at + 1] - roots_[at];
        const std::size_t end = direction > 0 ? roots_.size() - 1 : 0;
        const std::size_t before = near.size();
        for (std::size_t begin = from, i = from; begin != end && near.size() - before < most; begin = i) {
            double steps = 0;
            while (i != end && (i == begin || std::abs(roots_[i] - roots_[begin]) < width / 8)) {
                const std::int64_t counted = counts_[direction > 0 ? i : i - 1];
                if (counted == hole) break;
                steps += static_cast<double>(counted);
                i = direction > 0 ? i + 1 : i - 1;
            }
            if (i != begin)
                near.push_back({std::min(roots_[begin], roots_[i]), std::max(roots_[begin], roots_[i]), steps});
            else
                i = direction > 0 ? i + 1 : i - 1;  // where nothing is counted, over the hole
            const bool is_far = std::abs(roots_[i] - roots_[from]) > 6 * width;
            if (is_far && near.size() - before >= enough) return;
        }
    }

    /// The number of steps up to a root as a polynomial of the root: its differences over the stretches are known, that
    /// over the hole is sought.
    double steps_in_hole(std::size_t at, const std::vector<Stretch>& near, Eigen::Index degree) const {
        const double middle = 0.5 * (roots_[at] + roots_[at + 1]);
        double reach = roots_[at + 1] - middle;
        for (const Stretch& s : near) reach = std::max({reach, middle - s.from, s.to - middle});
        const auto differences = [&](double from, double to) {
            Eigen::RowVectorXd powers(degree);
            for (Eigen::Index p = 0; p < degree; ++p)
                powers[p] = std::pow((to - middle) / reach, p + 1) - std::pow((from - middle) / reach, p + 1);
            return powers;
        };
        const auto count = static_cast<Eigen::Index>(near.size());
        Eigen::MatrixXd columns(count, degree);
        Eigen::VectorXd steps(count);
        for (Eigen::Index i = 0; i < count; ++i) {
            const Stretch& stretch = near[static_cast<std::size_t>(i)];
            columns.row(i) = differences(stretch.from, stretch.to);
            steps[i] = stretch.steps;
        }
        return differences(roots_[at], roots_[at + 1]).dot(least_squares(columns, steps));
    }

    std::span<const double> roots_;
    double limit_;
    std::vector<std::int64_t> counts_;
    std::vector<std::size_t> holes_;
    std::size_t predictions_left_ = 0;  // so that the work grows no faster than the number of holes
};

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
    std::shared_ptr<const MassTimeCalibration> calibration;  // null where the fit fails
    double root_mean_square_ns = infinite;                   // residual in mass over the slope of the law
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
    std::vector<std::int32_t> flags(further_powers.back() + 1);
    for (std::size_t k = 0; k < powers.size(); ++k) {
        flags[static_cast<std::size_t>(powers[k])] = 1;
        c.*calibration_coefficients[2 + k].second = terms[static_cast<Eigen::Index>(k)] / std::pow(scale_ns, powers[k]);
    }
    return {make_square_law_calibration(c, VariantArray<std::int32_t>(std::move(flags))),
            residuals.norm() / std::sqrt(static_cast<double>(x.size())) * scale_ns};
}

TimeScale choose_scale(const KnownTimes& known, double steps_before, std::int64_t last_step) {
    constexpr double longest_flight_ns = 150000;
    const double steps = steps_before + static_cast<double>(last_step);
    const double slowest_ns = steps <= longest_flight_ns ? 1 : 0.5 * steps <= longest_flight_ns ? 0.5 : 0.25;
    const double interval_ns = known.interval_ns.value_or(slowest_ns);
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

double rounding_of_32_bit(double value) {
    const auto rounded = static_cast<float>(value);
    return 0.5 * (std::nextafter(rounded, std::numeric_limits<float>::max()) - rounded);
}

}  // namespace

std::vector<std::int64_t> count_steps(std::span<const double> roots, std::int64_t limit) {
    return HoleCounter(roots, limit).count();
}

SamplePositions locate_samples(std::span<const double> mz, const MassTimeCalibration& calibration,
                               const TimeScale& scale, double limit_steps) {
    const bool is_32_bit = fits_32_bit(mz);
    const auto mass_at = [&](std::int64_t step) {
        return calibration.mass_from_time(scale.origin_ns + static_cast<double>(step) * scale.interval_ns);
    };
    const auto deviation_at = [&](double mass, std::int64_t step) {
        const double here = mass_at(step), mass_step = mass_at(step + 1) - here;
        const double off = std::abs(mass - here) - (is_32_bit ? rounding_of_32_bit(mass) : 0);
        return mass_step > 0 ? std::max(0.0, off) / mass_step : infinite;
    };
    const auto nearest_step = [&](double mass) {
        try {
            return std::round((calibration.time_from_mass(mass) - scale.origin_ns) / scale.interval_ns);
        } catch (const Error&) {
            return infinite;  // no flight time: the mass does not lie on this axis
        }
    };
    SamplePositions positions;
    positions.steps.reserve(mz.size());
    for (std::size_t i = 0; i < mz.size() && positions.met(limit_steps); ++i) {
        std::int64_t step = i == 0 ? 0 : positions.steps.back() + 1;
        double deviation = i == 0 ? infinite : deviation_at(mz[i], step);
        if (deviation > largest_deviation_steps) {
            const double nearest = nearest_step(mz[i]);
            const bool ascends = std::abs(nearest) < 1e15 && (i == 0 || nearest >= static_cast<double>(step));
            step = ascends ? static_cast<std::int64_t>(nearest) : step;
            deviation = ascends ? deviation_at(mz[i], step) : infinite;
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
        place.fail("m/z array: ", mz.size(), " samples are too few to find the flight-time law of the axis");
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
    if (nearest.positions.met(largest_misfit_steps)) return nearest;
    const auto& [positions, deviation, worst] = nearest.positions;
    place.fail("m/z array: no flight-time law meets the axis, so that flight times would mean nothing: ",
               "under the best one, sample ", worst, " at m/z [", mz[worst], "] lies ",
               (std::isfinite(deviation) ? number_text(deviation) + " steps off" : "at no time after its neighbour"));
}

}  // namespace korvane::replay
