#include "korvane/calibration_fit.h"

#include <fmt/format.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <random>
#include <span>

#include "tune/law_slope.h"

namespace korvane {

namespace {

using Eigen::ArrayXd;
using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr std::size_t least_calibrants = 3;
constexpr double ppm = 1e6;
/// Robust standard deviations beyond which a calibrant is left out (Rousseeuw and Leroy say 2.5).
constexpr double outlier_limit = 3;
/// Subsets tried; all of them where there are fewer. 500 miss a clean one of four among 30 % outliers once in 10^59.
constexpr int most_subsets = 500;
/// Standard deviation of a normal distribution over its median absolute deviation.
constexpr double sigma_per_mad = 1.4826;
/// Steps of the Gauss-Newton iteration; from a law that is a per cent off three reach the last digit.
constexpr int most_steps = 20;
/// Rounds of taking in and leaving out; they end when nothing changes.
constexpr int most_rounds = 10;

/// Lists tell masses to 0.0001 at least; trailing zeros of a coarser one cannot be seen in its numbers.
constexpr std::size_t least_decimals = 4;

constexpr std::span higher_terms = std::span(calibration_coefficients).subspan(2);  // beyond A and B

[[noreturn]] void raise_fit_error(const std::string& why) {
    throw Error(error_number::routine_detected, "fit_calibration", why);
}

/// Powers of the flight time that the calibration uses, one for each of its coefficients from C on.
std::vector<int> used_powers(const MassTimeCalibration& calibration) {
    const VariantArray<std::int32_t> flags = calibration.use_flags();
    std::vector<int> powers;
    int power = flags.is_empty() ? 0 : flags.lower_bound();
    for (const std::int32_t flag : flags.elements()) {
        if (flag == 1 && powers.size() < higher_terms.size()) powers.push_back(power);
        ++power;
    }
    return powers;
}

/// The law (a t - b)^2 + sum of c t^p, with the coefficients a, b, c in one vector, t in ns.
struct Law {
    VectorXd coefficients;
    std::vector<int> powers;
};

/// A law near its best one, made linear: residuals over their standard errors, and how the coefficients move them.
struct Linearised {
    VectorXd residuals;
    MatrixXd slopes;  // one row a calibrant
};

struct Points {
    ArrayXd masses, times_ns, errors_ppm;

    ArrayXd residuals_ppm(const Law& law) const {
        ArrayXd by_law = (law.coefficients[0] * times_ns - law.coefficients[1]).square();
        for (std::size_t i = 0; i < law.powers.size(); ++i)
            by_law += law.coefficients[static_cast<Index>(i) + 2] * times_ns.pow(law.powers[i]);
        return (by_law / masses - 1) * ppm;
    }
    Linearised linearised(const Law& law) const {
        const ArrayXd roots = law.coefficients[0] * times_ns - law.coefficients[1];
        MatrixXd slopes(times_ns.size(), law.coefficients.size());
        slopes.col(0) = 2 * roots * times_ns;
        slopes.col(1) = -2 * roots;
        for (std::size_t i = 0; i < law.powers.size(); ++i)
            slopes.col(static_cast<Index>(i) + 2) = times_ns.pow(law.powers[i]);
        slopes.array().colwise() *= ppm / masses / errors_ppm;
        return {residuals_ppm(law) / errors_ppm, std::move(slopes)};
    }
};

using Places = std::vector<Index>;

/// The step of the coefficients that makes the residuals of some calibrants smallest; nothing where they do not tell
/// all coefficients.
std::optional<VectorXd> best_step(const Linearised& at, const Places& places) {
    const MatrixXd slopes = at.slopes(places, Eigen::all);
    const VectorXd scale = slopes.colwise().norm().cwiseMax(1e-300);
    const Eigen::ColPivHouseholderQR<MatrixXd> solver(slopes * scale.cwiseInverse().asDiagonal());
    if (solver.rank() < slopes.cols()) return std::nullopt;
    const VectorXd residuals = at.residuals(places);
    return -solver.solve(residuals).cwiseQuotient(scale);
}

std::optional<Law> least_squares(const Points& points, Law law, const Places& places) {
    const auto chi_square = [&](const Linearised& at) { return VectorXd(at.residuals(places)).squaredNorm(); };
    Linearised at = points.linearised(law);
    for (int step = 0; step < most_steps; ++step) {
        const auto move = best_step(at, places);
        if (!move) return std::nullopt;
        const Law moved{law.coefficients + *move, law.powers};
        Linearised next = points.linearised(moved);
        if (!(chi_square(next) < chi_square(at) * (1 - 1e-9))) break;
        law = moved;
        at = std::move(next);
    }
    return law;
}

/// The square law through the calibrants by sqrt(m) = a t - b, with every term beyond it 0.
Law square_law(const Points& points, const std::vector<int>& powers) {
    const ArrayXd roots = points.masses.sqrt();
    const double mean_time = points.times_ns.mean();
    const ArrayXd times = points.times_ns - mean_time;
    Law law{VectorXd::Zero(static_cast<Index>(powers.size()) + 2), powers};
    law.coefficients[0] = (times * (roots - roots.mean())).sum() / times.square().sum();
    law.coefficients[1] = law.coefficients[0] * mean_time - roots.mean();
    return law;
}

/// Calls `with` for every choice of `chosen` of `count` places, or for `most_subsets` random ones.
template <class With>
void for_subsets(std::size_t count, std::size_t chosen, const With& with) {
    double choices = 1;
    for (std::size_t i = 0; i < chosen; ++i) choices *= static_cast<double>(count - i) / static_cast<double>(i + 1);
    std::mt19937 random(1);  // the same calibrants give the same fit
    std::vector<bool> taken(count, false);
    std::fill(taken.begin(), taken.begin() + static_cast<std::ptrdiff_t>(chosen), true);
    for (int subset = 0; choices <= most_subsets || subset < most_subsets; ++subset) {
        Places places;
        for (std::size_t i = 0; i < count; ++i)
            if (taken[i]) places.push_back(static_cast<Index>(i));
        with(places);
        if (choices > most_subsets)
            std::shuffle(taken.begin(), taken.end(), random);
        else if (!std::prev_permutation(taken.begin(), taken.end()))
            break;
    }
}

/// A law through the calibrants that agree on it.
struct RobustLaw {
    Law law;
    Places used;
    VectorXd distances;     ///< of all calibrants, in standard errors
    VectorXd leverages;     ///< of all calibrants: the law's variance there, in that of the calibrant
    VectorXd standardised;  ///< distances over their own standard deviations
    double limit;           ///< of the standardised distances of those that agree
};

double median_scale(const VectorXd& distances, std::size_t freedom) {
    VectorXd sizes = distances.cwiseAbs();
    const auto middle = sizes.begin() + sizes.size() / 2;
    std::nth_element(sizes.begin(), middle, sizes.end());
    return sigma_per_mad * (1 + 5.0 / static_cast<double>(freedom)) * *middle;
}

/// Distance that Student's t exceeds as rarely as a normal distribution does `outlier_limit` (Wallace, Annals of
/// Mathematical Statistics 30 (1959) 1124).
double student_limit(double freedom) {
    const double z = outlier_limit * (8 * freedom + 3) / (8 * freedom + 1);
    return std::sqrt(freedom * std::expm1(z * z / freedom));
}

/// Distances from the law of the subset that most calibrants agree with: the least median of squares, made linear at
/// the law through all.
std::optional<std::pair<VectorXd, double>> least_median_distances(const Points& points, const Law& through_all) {
    const Linearised at = points.linearised(through_all);
    const auto count = static_cast<std::size_t>(at.slopes.rows()),
               unknowns = static_cast<std::size_t>(at.slopes.cols());
    std::optional<std::pair<VectorXd, double>> best;
    for_subsets(count, unknowns, [&](const Places& places) {
        const auto step = best_step(at, places);
        if (!step) return;
        VectorXd distances = at.residuals + at.slopes * *step;
        const double scale = median_scale(distances, count - unknowns);
        if (!best || scale < best->second) best.emplace(std::move(distances), scale);
    });
    return best;
}

VectorXd leverages_of(const Linearised& at, const Places& used) {
    const MatrixXd slopes = at.slopes(used, Eigen::all);
    const VectorXd scale = slopes.colwise().norm().cwiseInverse();
    const MatrixXd scaled = slopes * scale.asDiagonal();
    const MatrixXd covariance = scale.asDiagonal() * (scaled.transpose() * scaled).inverse() * scale.asDiagonal();
    return (at.slopes * covariance).cwiseProduct(at.slopes).rowwise().sum();
}

/// Least squares through some calibrants; nothing where fewer than one more than there are coefficients.
std::optional<RobustLaw> law_through(const Points& points, const Law& start, Places agreeing) {
    const auto freedom = static_cast<double>(static_cast<Index>(agreeing.size()) - start.coefficients.size());
    if (freedom < 1) return std::nullopt;
    const auto law = least_squares(points, start, agreeing);
    if (!law) return std::nullopt;
    const Linearised at = points.linearised(*law);
    RobustLaw robust{*law, std::move(agreeing), at.residuals, {}, {}, outlier_limit};
    robust.leverages = leverages_of(at, robust.used);
    // The law follows those that it is made of, and wavers beside the others.
    VectorXd variances = robust.leverages.array() + 1;
    for (const Index place : robust.used) variances[place] = std::max(1 - robust.leverages[place], 1e-3);
    robust.standardised = robust.distances.cwiseQuotient(variances.cwiseSqrt());
    const double scale = std::sqrt(robust.distances(robust.used).squaredNorm() / freedom);
    if (scale > 1) robust.limit = scale * student_limit(freedom);
    return robust;
}

std::optional<RobustLaw> robust_law(const Points& points, const Law& start) {
    Places all(static_cast<std::size_t>(points.masses.size()));
    std::iota(all.begin(), all.end(), Index{0});
    auto robust = law_through(points, start, std::move(all));
    // Where all agree by their stated errors nobody is looked for: a law of a few that chance put in line would reach
    // too far.
    if (!robust || robust->standardised.cwiseAbs().maxCoeff() <= outlier_limit) return robust;
    const auto median_fit = least_median_distances(points, robust->law);
    if (!median_fit) return std::nullopt;
    VectorXd standardised = median_fit->first;
    double limit = outlier_limit * std::max(1.0, median_fit->second);
    // The law of the subset wavers by the errors of its few calibrants; that of all that agree tells better who does.
    for (int round = 0; round < most_rounds; ++round) {
        Places agreeing;
        for (Index i = 0; i < standardised.size(); ++i)
            if (std::abs(standardised[i]) <= limit) agreeing.push_back(i);
        if (round > 0 && agreeing == robust->used) break;
        robust = law_through(points, round > 0 ? robust->law : start, std::move(agreeing));
        if (!robust) return std::nullopt;
        standardised = robust->standardised;
        limit = robust->limit;
    }
    return robust;
}

/// The law whose number of terms the calibrants carry.
RobustLaw best_law(const Points& points, const std::vector<int>& powers) {
    std::vector<RobustLaw> laws;
    // Three calibrants carry the square law, and nobody can tell which of them were the odd one.
    for (std::size_t terms = 0;
         terms <= powers.size() && (terms == 0 || points.masses.size() > static_cast<Index>(terms) + 3); ++terms) {
        auto law = robust_law(
            points, square_law(points, {powers.begin(), powers.begin() + static_cast<std::ptrdiff_t>(terms)}));
        if (law) laws.push_back(std::move(*law));
    }
    if (laws.empty()) raise_fit_error("the calibrants agree on no law; are the masses those of the peaks?");
    const auto criterion = [&](const RobustLaw& candidate) {
        const auto count = static_cast<double>(points.masses.size()),
                   unknowns = static_cast<double>(candidate.law.coefficients.size());
        // The standard errors are known up to a common growth, which may not be below 1.
        const VectorXd used = candidate.distances(candidate.used);
        const double growth = std::sqrt(std::max(1.0, used.squaredNorm() / static_cast<double>(used.size())));
        const double chi_square = (candidate.distances / growth).cwiseAbs().cwiseMin(outlier_limit).squaredNorm();
        return 2 * count * std::log(growth) + chi_square + 2 * unknowns +
               2 * unknowns * (unknowns + 1) / (count - unknowns - 1);
    };
    return *std::ranges::min_element(laws, {}, criterion);
}

/// Standard deviation of what rounding to the decimals of the masses' list has taken or given: a uniform distribution.
double rounding_of_masses(const std::vector<CalibrantTime>& measured) {
    std::size_t decimals = least_decimals;
    for (const CalibrantTime& calibrant : measured) {
        const std::string text = fmt::format("{}", calibrant.mass);
        if (const auto point = text.find('.'); point != std::string::npos)
            decimals = std::max(decimals, text.size() - point - 1);
    }
    // By operations that every machine rounds alike.
    double last_digit = 1;
    for (std::size_t i = 0; i < decimals; ++i) last_digit /= 10;
    return last_digit / std::sqrt(12.0);
}

Points points_of(const std::vector<CalibrantTime>& measured, const MassTimeCalibration& before, const Places& places) {
    const auto count = static_cast<Index>(places.size());
    Points points{ArrayXd(count), ArrayXd(count), ArrayXd(count)};
    const double rounding = rounding_of_masses(measured);
    for (Index i = 0; i < count; ++i) {
        const CalibrantTime& calibrant = measured[static_cast<std::size_t>(places[static_cast<std::size_t>(i)])];
        points.masses[i] = calibrant.mass;
        points.times_ns[i] = calibrant.time_ns;
        const double time_ppm = calibrant.error_ns * ppm_per_ns(before, calibrant.time_ns);
        const double mass_ppm = rounding / calibrant.mass * ppm;
        points.errors_ppm[i] = std::sqrt(time_ppm * time_ppm + mass_ppm * mass_ppm);
    }
    return points;
}

/// Which calibrants can be used at all; the others get the reason.
Places usable_places(std::vector<CalibrantResidual>& calibrants) {
    Places places;
    for (std::size_t i = 0; i < calibrants.size(); ++i) {
        CalibrantResidual& calibrant = calibrants[i];
        if (calibrant.measured.spectra == 0)
            calibrant.not_used = "no peak";
        else if (!(calibrant.measured.error_ns > 0))
            calibrant.not_used = "no standard error; more spectra give one";
        else
            places.push_back(static_cast<Index>(i));
    }
    return places;
}

void require_distinct_times(const Points& points) {
    const auto count = static_cast<std::size_t>(points.times_ns.size());
    if (count < least_calibrants)
        raise_fit_error(fmt::format("a fit needs {} calibrants with peaks; there are {}", least_calibrants, count));
    if (!(points.times_ns.maxCoeff() > points.times_ns.minCoeff()))
        raise_fit_error("all calibrants have the same flight time");
}

CalibrationCoefficients coefficients_of(const Law& law) {
    CalibrationCoefficients result;
    result.A = law.coefficients[0];
    result.B = law.coefficients[1] / law.coefficients[0];
    for (Index i = 2; i < law.coefficients.size(); ++i)
        result.*higher_terms[static_cast<std::size_t>(i) - 2].second = law.coefficients[i];
    return result;
}

}  // namespace

CalibrationFit fit_calibration(const std::vector<CalibrantTime>& measured, const MassTimeCalibration& before) {
    CalibrationFit fit;
    for (const CalibrantTime& calibrant : measured) fit.calibrants.push_back({calibrant, 0, 0, 0, 0, 0, {}});
    const Places places = usable_places(fit.calibrants);
    const Points points = points_of(measured, before, places);
    require_distinct_times(points);
    const RobustLaw best = best_law(points, used_powers(before));

    fit.calibration = before.clone();
    fit.calibration->set_coefficients(coefficients_of(best.law));
    fit.terms = best.law.powers.size();
    fit.used = best.used.size();
    const auto freedom = static_cast<double>(static_cast<Index>(fit.used) - best.law.coefficients.size());
    fit.chi_square_per_freedom = best.distances(best.used).squaredNorm() / freedom;
    const double growth = std::sqrt(std::max(1.0, fit.chi_square_per_freedom));
    const ArrayXd after_ppm = points.residuals_ppm(best.law);
    ArrayXd before_ppm = points.times_ns, left_out_ppm = after_ppm;
    for (double& time_ns : before_ppm) time_ns = before.mass_from_time(time_ns);
    before_ppm = (before_ppm / points.masses - 1) * ppm;
    for (const Index i : best.used) left_out_ppm[i] /= 1 - best.leverages[i];
    for (Index i = 0; i < after_ppm.size(); ++i) {
        CalibrantResidual& calibrant = fit.calibrants[static_cast<std::size_t>(places[static_cast<std::size_t>(i)])];
        calibrant.error_ppm = points.errors_ppm[i];
        calibrant.before_ppm = before_ppm[i];
        calibrant.after_ppm = after_ppm[i];
        calibrant.left_out_ppm = left_out_ppm[i];
        calibrant.law_error_ppm = growth * points.errors_ppm[i] * std::sqrt(best.leverages[i]);
        if (!std::ranges::binary_search(best.used, i))
            calibrant.not_used = fmt::format("{:.2f} ppm off the law of the others, {:.0f} standard errors",
                                             after_ppm[i], std::abs(best.distances[i]));
    }
    const ArrayXd weights = points.errors_ppm(best.used).square().inverse();
    const auto root_mean_square = [&](const ArrayXd& residuals_ppm) {
        return std::sqrt((weights * residuals_ppm(best.used).square()).sum() / weights.sum());
    };
    fit.before_ppm = root_mean_square(before_ppm);
    fit.left_out_ppm = root_mean_square(left_out_ppm);
    return fit;
}

}  // namespace korvane
