#include "instrument/replay/axis_law.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <utility>

#include "instrument/replay/least_squares.h"

namespace korvane::replay {

namespace {

using Column = std::vector<double>;

/// m = (a (x - b))^2 + sum of c x^p, with x = t / last time.
class ScaledLaw {
public:
    ScaledLaw(std::span<const AxisPoint> points, const std::vector<std::int32_t>& powers)
        : points_(points), powers_(powers), scale_ns_(points.back().time_ns), terms_(powers.size()) {
        start_with_straight_line();
        for (std::size_t i = 0; i < points_.size(); ++i) weights_.push_back(1 / (2 * a_ * std::sqrt(points_[i].mz)));
    }

    /// One step of Gauss and Newton.
    void improve() {
        const std::vector<double> changes = least_squares(derivatives(), residuals());
        a_ += changes[0];
        b_ += changes[1];
        for (std::size_t k = 0; k < terms_.size(); ++k) terms_[k] += changes[2 + k];
    }

    bool is_sound() const { return std::isfinite(a_) && std::isfinite(b_) && a_ > 0; }

    double root_mean_square_ns() const {
        const Column all = residuals();
        const double sum = std::inner_product(all.begin(), all.end(), all.begin(), 0.0);
        return std::sqrt(sum / static_cast<double>(all.size())) * scale_ns_;
    }

    std::shared_ptr<const SquareLawCalibration> calibration() const {
        CalibrationCoefficients c{a_ / scale_ns_, b_ * scale_ns_, 0, 0, 0, 0, 0, 0};
        const std::array<double*, largest_term_count> slots{&c.C, &c.D, &c.E, &c.F, &c.G, &c.H};
        std::vector<std::int32_t> flags(largest_axis_power + 1);
        for (std::size_t k = 0; k < powers_.size(); ++k) {
            flags[static_cast<std::size_t>(powers_[k])] = 1;
            *slots[k] = terms_[k] / std::pow(scale_ns_, powers_[k]);
        }
        return std::make_shared<SquareLawCalibration>(c, VariantArray<std::int32_t>(std::move(flags)));
    }

private:
    /// Of the roots, which follow A (t - B).
    void start_with_straight_line() {
        std::vector<Column> columns(2, Column(points_.size(), 1));
        Column roots(points_.size());
        for (std::size_t i = 0; i < points_.size(); ++i) {
            columns[1][i] = points_[i].time_ns / scale_ns_;
            roots[i] = std::sqrt(points_[i].mz);
        }
        const Column line = least_squares(columns, roots);
        a_ = line[1];
        b_ = -line[0] / line[1];
    }

    /// Of the weighted mass by a, b and the coefficients of the terms.
    std::vector<Column> derivatives() const {
        std::vector<Column> columns(2 + powers_.size(), Column(points_.size()));
        for (std::size_t i = 0; i < points_.size(); ++i) {
            const double x = points_[i].time_ns / scale_ns_;
            columns[0][i] = weights_[i] * 2 * a_ * (x - b_) * (x - b_);
            columns[1][i] = weights_[i] * -2 * a_ * a_ * (x - b_);
            for (std::size_t k = 0; k < powers_.size(); ++k) columns[2 + k][i] = weights_[i] * std::pow(x, powers_[k]);
        }
        return columns;
    }

    Column residuals() const {
        Column all(points_.size());
        for (std::size_t i = 0; i < points_.size(); ++i)
            all[i] = weights_[i] * (points_[i].mz - mass(points_[i].time_ns / scale_ns_));
        return all;
    }

    double mass(double x) const {
        const double root = a_ * (x - b_);
        double sum = root * root;
        for (std::size_t k = 0; k < powers_.size(); ++k) sum += terms_[k] * std::pow(x, powers_[k]);
        return sum;
    }

    std::span<const AxisPoint> points_;
    const std::vector<std::int32_t>& powers_;
    double scale_ns_;
    double a_ = 0;
    double b_ = 0;
    Column terms_;
    Column weights_;  // one over the mass step per x
};

}  // namespace

AxisLaw fit_axis_law(std::span<const AxisPoint> points, const std::vector<std::int32_t>& powers) {
    constexpr int iterations = 5;
    ScaledLaw law(points, powers);
    for (int i = 0; i < iterations && law.is_sound(); ++i) law.improve();
    if (!law.is_sound()) return {nullptr, std::numeric_limits<double>::infinity()};
    return {law.calibration(), law.root_mean_square_ns()};
}

}  // namespace korvane::replay
