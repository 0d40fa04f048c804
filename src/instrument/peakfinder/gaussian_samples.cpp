#include "instrument/peakfinder/gaussian_samples.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "instrument/peakfinder/tail_response.h"

namespace korvane {

void gaussian_samples(const PeakShape& shape, std::ptrdiff_t first, std::span<double> values) {
    const auto size = static_cast<std::ptrdiff_t>(values.size());
    if (size == 0) return;
    const double inverse = 1 / shape.sigma;
    const auto nearest = static_cast<std::ptrdiff_t>(std::floor(shape.centre + 0.5)) - first;
    const std::ptrdiff_t middle = std::clamp<std::ptrdiff_t>(nearest, 0, size - 1);
    const double distance = (static_cast<double>(first + middle) - shape.centre) * inverse;
    const double top = shape.height * std::exp(-0.5 * distance * distance);
    const double square_step = std::exp(-inverse * inverse);
    const double right_step = std::exp(-(distance + 0.5 * inverse) * inverse);
    double* const at_middle = values.data() + middle;
    *at_middle = top;
    double value = top;
    double step = right_step;
    for (std::ptrdiff_t i = 1; i < size - middle; ++i) {
        value *= step;
        step *= square_step;
        at_middle[i] = value;
    }
    value = top;
    step = square_step / right_step;
    for (std::ptrdiff_t i = 1; i <= middle; ++i) {
        value *= step;
        step *= square_step;
        at_middle[-i] = value;
    }
}

void add_late_peak_samples(const PeakShape& fitted, double tail_fraction, std::ptrdiff_t first,
                           std::span<double> values) {
    // The fitted Gaussian's answer to late ions, undone.
    const double sigma = fitted.sigma / (1 + fitted_width_of_tail * tail_fraction);
    const double centre = fitted.centre - fitted_centre_of_tail * tail_fraction * sigma;
    const double height = fitted.height * fitted.sigma / sigma * (1 + fitted_area_of_tail * tail_fraction);
    const double rate = 1 / tail_sigmas;
    const double delayed = height * tail_fraction * rate * std::sqrt(0.5 * std::numbers::pi);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double u = (static_cast<double>(first) + static_cast<double>(i) - centre) / sigma;
        const double late = std::exp(0.5 * rate * rate - rate * u) * std::erfc((rate - u) / std::numbers::sqrt2);
        values[i] += (1 - tail_fraction) * height * std::exp(-0.5 * u * u) + (u > -6 ? delayed * late : 0);
    }
}

}  // namespace korvane
