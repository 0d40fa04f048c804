#include "instrument/peakfinder/peak_shape.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace korvane {

using namespace method;

namespace {

/// erfc(x) exp(x^2) for x >= 0, to 1.5e-7 of erfc: Abramowitz and Stegun 7.1.26.
double scaled_erfc(double x) {
    const double t = 1 / (1 + 0.3275911 * x);
    return t * (0.254829592 + t * (-0.284496736 + t * (1.421413741 + t * (-1.453152027 + t * 1.061405429))));
}

}  // namespace

GaussianSteps::GaussianSteps(const PeakShape& shape, const SampleRange& range) {
    const double inverse = 1 / shape.sigma;
    middle = std::clamp(floor_of(shape.centre + 0.5), range.first, range.end - 1);
    distance = (static_cast<double>(middle) - shape.centre) * inverse;
    top = shape.height * std::exp(-0.5 * distance * distance);
    square_step = std::exp(-inverse * inverse);
    const double right_step = std::exp(-(distance + 0.5 * inverse) * inverse);
    step = Pair{right_step, square_step / right_step};
}

void gaussian_samples(const PeakShape& shape, Index first, std::span<double> values) {
    const Index size = std::ssize(values);
    if (size == 0) return;
    const GaussianSteps steps(shape, {first, first + size});
    double* const at_middle = values.data() + (steps.middle - first);
    *at_middle = steps.top;
    const auto fill = [&](Index direction, Index end, double step) {
        double value = steps.top;
        for (Index i = 1; i < end; ++i) {
            value *= step;
            step *= steps.square_step;
            at_middle[direction * i] = value;
        }
    };
    fill(1, first + size - steps.middle, steps.step[0]);
    fill(-1, steps.middle - first + 1, steps.step[1]);
}

Correlation correlation(std::span<const double> counts, Index centre, double sigma, double reach_sigmas,
                        double pedestal) {
    const Index size = std::ssize(counts);
    const Index reach = std::min(ceil_of(reach_sigmas * sigma), std::max(centre, size - 1 - centre));
    Correlation total{counts[centre] - pedestal, 0, 1};
    double weight = 1, step = std::exp(-0.5 / (sigma * sigma));
    const double square_step = step * step;
    for (Index distance = 1; distance <= reach; ++distance) {
        weight *= step;
        step *= square_step;
        const auto add = [&](Index place, double moment) {
            if (place < 0 || place >= size) return;
            const double weighted = weight * (counts[place] - pedestal);
            total.sum += weighted;
            total.moment += weighted * moment;
            total.square_sum += weight * weight;
        };
        add(centre - distance, -static_cast<double>(distance));
        add(centre + distance, static_cast<double>(distance));
    }
    return total;
}

void add_late_peak_samples(const PeakShape& fitted, double tail_fraction, Index first, std::span<double> values) {
    // The fitted Gaussian's answer to late ions, undone.
    const double sigma = fitted.sigma / (1 + fitted_width_of_tail * tail_fraction);
    const double centre = fitted.centre - fitted_centre_of_tail * tail_fraction * sigma;
    const double height = fitted.height * fitted.sigma / sigma * (1 + fitted_area_of_tail * tail_fraction);
    const double rate = 1 / tail_sigmas;
    const double delayed = height * tail_fraction * rate * std::sqrt(0.5 * std::numbers::pi);
    const double decay_step = std::exp(-rate / sigma), inverse = 1 / sigma;
    const Index size = std::ssize(values);
    if (size == 0) return;
    const GaussianSteps steps({1, centre, sigma}, {first, first + size});
    const Index middle = steps.middle - first;
    const auto add = [&](Index begin, Index end, Index direction, double in_time, double step) {
        double decay = 0;
        for (Index i = begin; i != end; i += direction, in_time *= step, step *= steps.square_step) {
            const double u = (static_cast<double>(first + i) - centre) * inverse;
            if (u > rate) decay = decay > 0 ? decay * decay_step : 2 * std::exp(0.5 * rate * rate - rate * u);
            const bool is_gone = std::abs(u) > gone_sigmas;
            // exp(r^2 / 2 - r u) erfc(x) with x = (r - u) / sqrt 2 and erfc(|x|) = p exp(-x^2): exp(-u^2 / 2) p.
            const double near = is_gone ? 0 : in_time * scaled_erfc(std::abs(rate - u) * (1 / std::numbers::sqrt2));
            const double late = u > rate ? decay - near : near;
            values[i] += (is_gone ? 0 : (1 - tail_fraction) * height * in_time) + delayed * late;
        }
    };
    add(middle, size, 1, steps.top, steps.step[0]);
    add(middle - 1, -1, -1, steps.top * steps.step[1], steps.step[1] * steps.square_step);
}

}  // namespace korvane
