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

void gaussian_samples(const PeakShape& shape, Index first, std::span<double> values) {
    const Index size = std::ssize(values);
    if (size == 0) return;
    const double inverse = 1 / shape.sigma;
    const auto nearest = static_cast<Index>(std::floor(shape.centre + 0.5)) - first;
    const Index middle = std::clamp<Index>(nearest, 0, size - 1);
    const double distance = (static_cast<double>(first + middle) - shape.centre) * inverse;
    const double top = shape.height * std::exp(-0.5 * distance * distance);
    const double square_step = std::exp(-inverse * inverse);
    const double right_step = std::exp(-(distance + 0.5 * inverse) * inverse);
    double* const at_middle = values.data() + middle;
    *at_middle = top;
    auto fill = [&](Index direction, Index end, double step) {
        double value = top;
        for (Index i = 1; i < end; ++i) {
            value *= step;
            step *= square_step;
            at_middle[direction * i] = value;
        }
    };
    fill(1, size - middle, right_step);
    fill(-1, middle + 1, square_step / right_step);
}

Correlation correlation(std::span<const double> counts, Index centre, double sigma, double reach_sigmas,
                        double pedestal) {
    const auto reach = static_cast<Index>(std::ceil(reach_sigmas * sigma));
    const Index first = std::max<Index>(0, centre - reach);
    std::vector<double> weights(std::min(std::ssize(counts), centre + reach + 1) - first);
    gaussian_samples({1, static_cast<double>(centre), sigma}, first, weights);
    Correlation total;
    for (Index i = 0; i < std::ssize(weights); ++i) {
        const double weighted = weights[i] * (counts[first + i] - pedestal);
        total.sum += weighted;
        total.moment += weighted * static_cast<double>(first + i - centre);
        total.square_sum += weights[i] * weights[i];
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
    std::vector<double> in_time(values.size());
    gaussian_samples({1, centre, sigma}, first, in_time);
    const double step = std::exp(-rate / sigma);
    double decay = 0;
    for (Index i = 0; i < std::ssize(values); ++i) {
        const double u = (static_cast<double>(first) + static_cast<double>(i) - centre) / sigma;
        if (u > rate) decay = decay > 0 ? decay * step : 2 * std::exp(0.5 * rate * rate - rate * u);
        if (std::abs(u) > gone_sigmas) {
            values[i] += delayed * decay;
            continue;
        }
        // exp(r^2 / 2 - r u) erfc(x) with x = (r - u) / sqrt 2 and erfc(|x|) = p exp(-x^2): exp(-u^2 / 2) p.
        const double near = in_time[i] * scaled_erfc(std::abs(rate - u) / std::numbers::sqrt2);
        const double late = u > rate ? decay - near : near;
        values[i] += (1 - tail_fraction) * height * in_time[i] + delayed * late;
    }
}

}  // namespace korvane
