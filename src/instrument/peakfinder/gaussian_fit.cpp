#include "instrument/peakfinder/gaussian_fit.h"

#include <array>
#include <numbers>

namespace korvane {

using namespace method;

namespace {

/// Of the height's logarithm, the centre in sigmas and the width's logarithm.
using Row = std::array<double, 3>;

double dot(const Row& left, const Row& right) {
    return left[0] * right[0] + left[1] * right[1] + left[2] * right[2];
}

/// Adds term x u^k to the sum of every power k.
template <class Number, std::size_t powers>
void add_powers(Number term, Number u, std::array<Number, powers>& sums) {
    for (auto& sum : sums) {
        sum += term;
        term *= u;
    }
}

/// Variance of a row times the sums whose covariance is the sum of w u^(k + l), from the moments k = 0 to 4.
double variance_of(const Row& row, const std::array<double, 5>& moments) {
    const auto [a, b, c] = row;
    return a * a * moments[0] + 2 * a * b * moments[1] + (2 * a * c + b * b) * moments[2] + 2 * b * c * moments[3] +
           c * c * moments[4];
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
            const double error = std::sqrt(fit.sigma_error * fit.sigma_error + spread * spread);
            const bool at_odds = std::abs(own_widening_) > freed_width_deviations * error;
            if (!at_odds || spread >= widest_spread) break;
        }
        fit.shape = shape_;
        fit.valid = true;
        return fit;
    }

private:
    /// Over the samples, with u = (i - c) / s, m the model and w the weight: w m u^k (sample - m), w m^2 u^k, and
    /// w^2 m^2 u^k x variance of the sample where every sample has its own. `Number`: of one sample or of two at a
    /// time.
    template <class Number>
    struct SumsOf {
        std::array<Number, 3> residual{};
        std::array<Number, 5> information{};
        std::array<Number, 5> variance{};
        Number chi_square{};
        double samples = 0;
        bool clipped = false;
    };
    using Sums = SumsOf<double>;
    struct Step {
        Row change;
        std::array<Row, 3> inverse;
    };

    /// Two samples at a time, as far from the middle to either side.
    template <bool with_variance>
    Sums accumulate() {
        const double reach = fit_reach_sigmas * shape_.sigma;
        const Index last = samples_.first + std::ssize(samples_.above) - 1;
        first_ = std::max(samples_.first, ceil_of(shape_.centre - reach));
        const Index end = std::min(last, floor_of(shape_.centre + reach)) + 1;
        Sums sums;
        if (first_ >= end) return sums;
        const double floor_variance = noise_variance_ + end_softening * gain_ * shape_.height;
        const double ion_variance = has_pulses_ ? 0 : model_.ion_variance();
        const double shape_error = (fit_shape_error + fit_tail_error * model_.tail_fraction) * shape_.height;
        const double shape_variance = shape_error * shape_error;
        const bool keeps_influence = with_variance && has_pulses_;
        if (keeps_influence) influence_.assign(end - first_, 0.0);
        const GaussianSteps steps(shape_, {first_, end});
        Pair value{steps.top, steps.top}, step = steps.step, u{steps.distance, steps.distance};
        const Pair u_step{1 / shape_.sigma, -1 / shape_.sigma};
        const Index reached = std::max(end - steps.middle, steps.middle - first_ + 1);
        SumsOf<Pair> pairs;
        for (Index i = 0; i < reached; ++i) {
            // What there is of two samples' counts, their neighbours' and their model.
            Pair above{}, others{}, model{};
            for (const int lane : {0, 1}) {
                const Index place = lane == 0 ? steps.middle + i : steps.middle - i;
                if (place < first_ || place >= end || i < lane) continue;
                const double counts = samples_.above[place - samples_.first];
                if (counts == saturated) continue;
                above[lane] = counts;
                others[lane] = samples_.other(place - samples_.first);
                model[lane] = value[lane];
                sums.samples += 1;
            }
            const Pair ions = gain_ * (model + others), residual = above - others - model;
            // The same weight for a sample that holds a neighbour's ions as well.
            const Pair slope = model / (floor_variance + ions);
            add_powers(slope * residual, u, pairs.residual);
            add_powers(slope * model, u, pairs.information);
            if constexpr (with_variance) {
                // The sample itself tells its variance better than the model, which knows nothing of late ions.
                const Pair positive = above > Pair{} ? above : Pair{};
                add_powers(slope * slope * (noise_variance_ + ion_variance * positive), u, pairs.variance);
                pairs.chi_square += residual * residual / (noise_variance_ + ions + shape_variance);
            }
            if (keeps_influence && steps.middle - i >= first_) influence_[steps.middle - i - first_] = slope[1];
            if (keeps_influence && steps.middle + i < end) influence_[steps.middle + i - first_] = slope[0];
            value *= step;
            step *= steps.square_step;
            u += u_step;
        }
        const auto both = [](const Pair& pair) { return pair[0] + pair[1]; };
        std::ranges::transform(pairs.residual, sums.residual.begin(), both);
        std::ranges::transform(pairs.information, sums.information.begin(), both);
        std::ranges::transform(pairs.variance, sums.variance.begin(), both);
        sums.chi_square = both(pairs.chi_square);
        sums.clipped = sums.samples < static_cast<double>(end - first_);
        return sums;
    }

    /// With the width drawn to the expected one; nothing where the samples do not tell the parameters.
    std::optional<Step> solve(const Sums& sums, double spread) const {
        const double pull = 1 / (spread * spread);
        const auto& [m0, m1, m2, m3, unpulled] = sums.information;
        const double m4 = unpulled + pull;
        const Row right{sums.residual[0], sums.residual[1], sums.residual[2] - pull * widening_};
        // Cofactors of the symmetric matrix.
        const double c00 = m2 * m4 - m3 * m3, c01 = m2 * m3 - m1 * m4, c02 = m1 * m3 - m2 * m2;
        const double c11 = m0 * m4 - m2 * m2, c12 = m1 * m2 - m0 * m3, c22 = m0 * m2 - m1 * m1;
        const double determinant = m0 * c00 + m1 * c01 + m2 * c02;
        if (!(determinant > least_determinant_part * m0 * m2 * m4)) return std::nullopt;
        const double part = 1 / determinant;
        const std::array<Row, 3> inverse{Row{c00 * part, c01 * part, c02 * part},
                                         Row{c01 * part, c11 * part, c12 * part},
                                         Row{c02 * part, c12 * part, c22 * part}};
        return Step{{dot(inverse[0], right), dot(inverse[1], right), dot(inverse[2], right)}, inverse};
    }

    void take(const Step& step) {
        shape_.height *= std::exp(std::clamp(step.change[0], -most_height_step, most_height_step));
        shape_.centre += std::clamp(step.change[1], -most_centre_step, most_centre_step) * shape_.sigma;
        const double widening = std::clamp(step.change[2], -most_width_step, most_width_step);
        shape_.sigma *= std::exp(widening);
        widening_ += widening;
    }

    bool approach(double spread) {
        for (int steps = 0; steps < most_fit_steps; ++steps) {
            const auto step = solve(accumulate<false>(), spread);
            if (!step) return false;
            take(*step);
            const double widening = shape_.sigma / expected_sigma_;
            if (widening > largest_widening || widening * largest_widening < 1) return false;
            bool settled = true;
            for (const int i : {0, 1, 2})
                settled &= std::abs(step->change[i]) <=
                           std::min(settled_step, settled_step_errors * std::sqrt(step->inverse[i][i]));
            if (settled) return true;
        }
        return false;
    }

    bool conclude(double spread, PeakFit& fit) {
        const Sums sums = accumulate<true>();
        const auto pulses = has_pulses_ ? pulse_shares() : std::vector<Row>{};
        auto error = [&](const Step& step, int parameter) {
            const Row& row = step.inverse[parameter];
            double variance = variance_of(row, sums.variance);
            for (const Row& share : pulses) variance += dot(row, share) * dot(row, share);
            return std::sqrt(std::max(0.0, variance));
        };
        // First the width that the peak would have nearly without the expectation, then the last step with it.
        const auto own = solve(sums, widest_spread);
        const auto last = solve(sums, spread);
        if (!own || !last) return false;
        const double own_step = std::clamp(own->change[2], -most_own_width_step, most_own_width_step);
        fit.own_sigma = shape_.sigma * std::exp(own_step);
        own_widening_ = widening_ + own_step;
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

    /// Where every ion is a pulse over several samples, the rows whose squares add up to the covariance of the three
    /// sums over samples of influence x u^k x sample: the integral over the ions' arrival of the product of what one
    /// pulse adds to two sums. The arrival is the peak's spread without the pulse's.
    std::vector<Row> pulse_shares() {
        const double square = shape_.sigma * shape_.sigma;
        const double arrival_square = std::max(least_arrival_part * square, square - pulse_sigma_ * pulse_sigma_);
        const double arrival = std::sqrt(arrival_square) / (1 + fitted_width_of_tail * model_.tail_fraction);
        const double delay =
            tail_sigmas * std::sqrt(arrival * arrival + model_.tail_pulse_part * pulse_sigma_ * pulse_sigma_);
        const double variance = model_.ion_variance() * shape_.counts();
        std::vector<Row> shares;
        auto add = [&](double distance, double part) {
            shares.push_back(share_of_pulse(shape_.centre + distance, std::sqrt(variance * part)));
        };
        for (const auto& node : normal_nodes) add(node.place * arrival, (1 - model_.tail_fraction) * node.weight);
        if (model_.tail_fraction > 0)
            for (const auto& node : delay_nodes) add(node.place * delay, model_.tail_fraction * node.weight);
        return shares;
    }

    /// What a pulse of so many counts at `place` adds to the three sums.
    Row share_of_pulse(double place, double counts) {
        const double reach = pulse_reach_sigmas * pulse_sigma_;
        const Index last = first_ + std::ssize(influence_) - 1;
        const Index from = std::max(first_, ceil_of(place - reach));
        const Index end = std::min(last, floor_of(place + reach)) + 1;
        pulse_.resize(std::max<Index>(0, end - from));
        gaussian_samples({counts / (pulse_sigma_ * std::sqrt(2 * std::numbers::pi)), place, pulse_sigma_}, from,
                         pulse_);
        Row share{};
        for (Index i = from; i < end; ++i)
            add_powers(influence_[i - first_] * pulse_[i - from],
                       (static_cast<double>(i) - shape_.centre) / shape_.sigma, share);
        return share;
    }

    const SearchContext& context_;
    const PeakSamples& samples_;
    PeakShape shape_;
    const PeakModel& model_ = context_.model;
    const double noise_variance_ = samples_.level.noise * samples_.level.noise;  // of a sample without ions
    const double expected_sigma_ = context_.expected_sigma(shape_.centre);
    // Logarithms of the width, and of that by the peak's own data, over the expected one.
    double widening_ = std::log(shape_.sigma / expected_sigma_), own_widening_ = 0;
    const double pulse_sigma_ = model_.ion_pulse_sigma_ns / context_.axis.interval_ns;
    const bool has_pulses_ = pulse_sigma_ >= shortest_pulse_samples;
    double gain_ = model_.ion_variance();  // variance of one sample, per count, that the ions make
    Index first_ = 0;
    std::vector<double> pulse_;      // one that is looked at
    std::vector<double> influence_;  // of the samples from `first_` on on the sums
};

}  // namespace

std::optional<PeakFit> fit_gaussian(const SearchContext& context, const PeakSamples& samples, const PeakShape& start) {
    return GaussianFit(context, samples, start).run();
}

}  // namespace korvane
