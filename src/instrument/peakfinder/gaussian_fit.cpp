#include "instrument/peakfinder/gaussian_fit.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <array>
#include <numbers>

namespace korvane {

using namespace method;

namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

/// Adds term x u^k to the sum of every power k.
template <std::size_t powers>
void add_powers(double term, double u, std::array<double, powers>& sums) {
    for (auto& sum : sums) {
        sum += term;
        term *= u;
    }
}

/// From the moments sum of w u^k, k = 0 to 4.
Matrix3d moment_matrix(const std::array<double, 5>& moments) {
    return Matrix3d::NullaryExpr([&](Eigen::Index row, Eigen::Index column) { return moments[row + column]; });
}

class GaussianFit {
public:
    GaussianFit(const SearchContext& context, const PeakSamples& samples, const PeakShape& start)
        : context_(context), samples_(samples), shape_(start) {
        if (has_pulses_) gain_ /= 2 * std::sqrt(std::numbers::pi) * pulse_sigma_;
    }

    std::optional<PeakFit> run() {
        PeakFit fit;
        for (double spread = model_.width_spread;; spread = widest_spread) {
            if (!approach(spread) || !conclude(spread, fit)) return std::nullopt;
            const double deviation = std::abs(std::log(fit.own_sigma / expected_sigma_));
            const bool at_odds = deviation > freed_width_deviations * std::hypot(fit.sigma_error, spread);
            if (!at_odds || spread >= widest_spread) break;
        }
        fit.shape = shape_;
        fit.valid = true;
        return fit;
    }

private:
    /// Over the samples, with u = (i - c) / s, m the model and w the weight: w m u^k (sample - m), w m^2 u^k, and
    /// w^2 m^2 u^k x variance of the sample where every sample has its own.
    struct Sums {
        std::array<double, 3> residual{};
        std::array<double, 5> information{};
        std::array<double, 5> variance{};
        double chi_square = 0;
        double samples = 0;
        bool clipped = false;
    };
    struct Step {
        Vector3d change;  // of the height's logarithm, the centre in sigmas and the width's logarithm
        Matrix3d inverse;
    };

    template <bool with_variance>
    Sums accumulate() {
        const double reach = fit_reach_sigmas * shape_.sigma;
        const Index last = samples_.first + std::ssize(samples_.above) - 1;
        first_ = std::max(samples_.first, static_cast<Index>(std::ceil(shape_.centre - reach)));
        const Index end = std::min(last, static_cast<Index>(std::floor(shape_.centre + reach))) + 1;
        const Index size = std::max<Index>(0, end - first_);
        values_.resize(size);
        gaussian_samples(shape_, first_, values_);
        if (with_variance) influence_.assign(size, 0.0);
        const double floor_variance = noise_variance_ + end_softening * gain_ * shape_.height;
        const double ion_variance = has_pulses_ ? 0 : model_.ion_variance();
        const double shape_error = (fit_shape_error + fit_tail_error * model_.tail_fraction) * shape_.height;
        const double shape_variance = shape_error * shape_error;
        const Index offset = first_ - samples_.first;
        const double step = 1 / shape_.sigma;
        double u = (static_cast<double>(first_) - shape_.centre) / shape_.sigma;
        Sums sums;
        for (Index i = 0; i < size; ++i, u += step) {
            const double above = samples_.above[offset + i];
            if (above == saturated) {
                sums.clipped = true;
                continue;
            }
            const double others = samples_.other(offset + i);
            // The same weight for a sample that holds a neighbour's ions as well.
            const double slope = 1 / (floor_variance + gain_ * (values_[i] + others)) * values_[i];
            add_powers(slope * (above - others - values_[i]), u, sums.residual);
            add_powers(slope * values_[i], u, sums.information);
            if constexpr (with_variance) {
                // The sample itself tells its variance better than the model, which knows nothing of late ions.
                add_powers(slope * slope * (noise_variance_ + ion_variance * std::max(above, 0.0)), u, sums.variance);
                influence_[i] = slope;
                const double residual = above - others - values_[i];
                sums.chi_square +=
                    residual * residual / (noise_variance_ + gain_ * (values_[i] + others) + shape_variance);
                sums.samples += 1;
            }
        }
        return sums;
    }

    /// With the width drawn to the expected one; nothing where the samples do not tell the parameters.
    std::optional<Step> solve(const Sums& sums, double spread) const {
        const double pull = 1 / (spread * spread);
        Matrix3d matrix = moment_matrix(sums.information);
        Vector3d right(sums.residual.data());
        matrix(2, 2) += pull;
        right[2] -= pull * std::log(shape_.sigma / expected_sigma_);
        const double least_determinant = least_determinant_part * matrix.diagonal().prod();
        Step step;
        double determinant = 0;
        bool invertible = false;
        matrix.computeInverseAndDetWithCheck(step.inverse, determinant, invertible, least_determinant);
        if (!invertible || determinant < 0) return std::nullopt;
        step.change = step.inverse * right;
        return step;
    }

    void take(const Step& step) {
        shape_.height *= std::exp(std::clamp(step.change[0], -most_height_step, most_height_step));
        shape_.centre += std::clamp(step.change[1], -most_centre_step, most_centre_step) * shape_.sigma;
        shape_.sigma *= std::exp(std::clamp(step.change[2], -most_width_step, most_width_step));
    }

    bool approach(double spread) {
        for (int steps = 0; steps < most_fit_steps; ++steps) {
            const auto step = solve(accumulate<false>(), spread);
            if (!step) return false;
            take(*step);
            const double widening = shape_.sigma / expected_sigma_;
            if (widening > largest_widening || widening * largest_widening < 1) return false;
            const Eigen::Array3d limits =
                (settled_step_errors * step->inverse.diagonal().array().sqrt()).min(settled_step);
            if ((step->change.array().abs() <= limits).all()) return true;
        }
        return false;
    }

    bool conclude(double spread, PeakFit& fit) {
        const Sums sums = accumulate<true>();
        Matrix3d scatter = moment_matrix(sums.variance);
        if (has_pulses_) scatter += pulse_scatter();
        auto error = [&](const Step& step, int parameter) {
            const auto row = step.inverse.col(parameter);
            return std::sqrt(std::max(0.0, row.dot(scatter * row)));
        };
        // First the width that the peak would have nearly without the expectation, then the last step with it.
        const auto own = solve(sums, widest_spread);
        const auto last = solve(sums, spread);
        if (!own || !last) return false;
        fit.own_sigma = shape_.sigma * std::exp(std::clamp(own->change[2], -most_own_width_step, most_own_width_step));
        fit.sigma_error = error(*own, 2);
        fit.height_error = error(*last, 0);
        fit.centre_error = error(*last, 1) * shape_.sigma;
        fit.clipped = sums.clipped;
        grow_errors(sums, fit);
        take(*last);
        return true;
    }

    /// By the misfit, which may be another peak to one side.
    void grow_errors(const Sums& sums, PeakFit& fit) const {
        const double freedom = sums.samples - fitted_parameters;
        if (freedom < 1 || sums.chi_square < freedom + misfit_deviations * std::sqrt(2 * freedom)) return;
        fit.misfit = std::sqrt(sums.chi_square / freedom);
        for (double* const error : {&fit.height_error, &fit.sigma_error, &fit.centre_error}) *error *= fit.misfit;
        const double lawful = (1 + 2 * model_.width_spread) * expected_sigma_;
        const double widening = std::sqrt(std::max(0.0, fit.own_sigma * fit.own_sigma - lawful * lawful));
        fit.centre_error = std::hypot(fit.centre_error, one_sided_widening * widening);
    }

    /// Covariance of the three sums over samples of influence x u^k x sample where every ion is a pulse over several
    /// samples: the integral over the ions' arrival of the product of what one pulse adds to two sums. The arrival is
    /// the peak's spread without the pulse's.
    Matrix3d pulse_scatter() {
        const double square = shape_.sigma * shape_.sigma;
        const double arrival_square = std::max(least_arrival_part * square, square - pulse_sigma_ * pulse_sigma_);
        const double arrival = std::sqrt(arrival_square) / (1 + fitted_width_of_tail * model_.tail_fraction);
        const double delay =
            tail_sigmas * std::sqrt(arrival * arrival + model_.tail_pulse_part * pulse_sigma_ * pulse_sigma_);
        const double area = shape_.height * shape_.sigma * std::sqrt(2 * std::numbers::pi);
        Matrix3d scatter = Matrix3d::Zero();
        auto add = [&](double distance, double part) {
            const Vector3d share = share_of_pulse(shape_.centre + distance);
            scatter += model_.ion_variance() * area * part * share * share.transpose();
        };
        for (const auto& node : normal_nodes) add(node.place * arrival, (1 - model_.tail_fraction) * node.weight);
        if (model_.tail_fraction > 0)
            for (const auto& node : delay_nodes) add(node.place * delay, model_.tail_fraction * node.weight);
        return scatter;
    }

    /// What a pulse of unit counts at `place` adds to the three sums.
    Vector3d share_of_pulse(double place) {
        const double reach = pulse_reach_sigmas * pulse_sigma_;
        const Index last = first_ + std::ssize(influence_) - 1;
        const Index from = std::max(first_, static_cast<Index>(std::ceil(place - reach)));
        const Index end = std::min(last, static_cast<Index>(std::floor(place + reach))) + 1;
        values_.resize(std::max<Index>(0, end - from));
        gaussian_samples({1 / (pulse_sigma_ * std::sqrt(2 * std::numbers::pi)), place, pulse_sigma_}, from, values_);
        std::array<double, 3> share{};
        for (Index i = from; i < end; ++i)
            add_powers(influence_[i - first_] * values_[i - from],
                       (static_cast<double>(i) - shape_.centre) / shape_.sigma, share);
        return Vector3d(share.data());
    }

    const SearchContext& context_;
    const PeakSamples& samples_;
    PeakShape shape_;
    const PeakModel& model_ = context_.model;
    const double noise_variance_ = context_.noise_variance(shape_.centre);  // of a sample without ions
    const double expected_sigma_ = context_.expected_sigma(shape_.centre);
    const double pulse_sigma_ = model_.ion_pulse_sigma_ns / context_.axis.interval_ns;
    const bool has_pulses_ = pulse_sigma_ >= shortest_pulse_samples;
    double gain_ = model_.ion_variance();  // variance of one sample, per count, that the ions make
    Index first_ = 0;
    std::vector<double> values_;     // of the model from `first_` on
    std::vector<double> influence_;  // of the same samples on the sums
};

}  // namespace

std::optional<PeakFit> fit_gaussian(const SearchContext& context, const PeakSamples& samples, const PeakShape& start) {
    return GaussianFit(context, samples, start).run();
}

}  // namespace korvane
