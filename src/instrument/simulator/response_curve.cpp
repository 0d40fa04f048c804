#include "instrument/simulator/response_curve.h"

#include <algorithm>
#include <cmath>

#include "instrument/simulator/portable_math.h"

namespace korvane::simulation {

bool ResponseCurve::holds_for(std::int32_t source_type, std::int32_t spectrum_polarity) const {
    if (polarity && static_cast<std::int32_t>(*polarity) != spectrum_polarity) return false;
    return sources.empty() || std::ranges::find(sources, source_type) != sources.end();
}

double ResponseCurve::raw(double value, double mz) const {
    const double middle = mass_exponent == 0.0 ? midpoint : midpoint * portable_pow(mz / 1000.0, mass_exponent);
    const double distance = (value - middle) / width;
    switch (shape) {
        case ResponseShape::rising:
            return 1.0 / (1.0 + portable_exp(-distance));
        case ResponseShape::falling:
            return 1.0 / (1.0 + portable_exp(distance));
        case ResponseShape::optimum:
            return 1.0 / (1.0 + distance * distance);
        case ResponseShape::power:
            return value <= 0.0 ? 0.0 : portable_pow(value / middle, exponent);
        case ResponseShape::low_mass_cutoff:
            return value <= 0.0 ? 1.0 : 1.0 / (1.0 + portable_pow(value * middle / mz, exponent));
    }
    return 1.0;
}

double ResponseCurve::relative(double value, double default_value, double mz) const {
    if (value == default_value) return 1.0;
    return std::min(raw(value, mz) / raw(default_value, mz), greatest_response);
}

std::vector<ResponseCurve> default_responses() {
    using enum ResponseShape;
    using enum ResponseTarget;
    constexpr auto positive = PolaritySetpoint::Positive, negative = PolaritySetpoint::Negative;
    // setpoint, target, shape, midpoint, width, exponent, mass exponent, sources, polarity
    return {
        {22, ions, low_mass_cutoff, 0.7, 1, 8, 0, {}, {}},
        {30, ions, rising, 90, 20, 1, 0.4, {}, {}},
        {31, ions, falling, 120, 15, 1, 0, {}, {}},
        {32, ions, optimum, 38, 15, 1, 0, {}, {}},
        {33, ions, rising, 250, 60, 1, 0.5, {}, {}},
        {34, ions, optimum, 36, 20, 1, 0, {}, {}},
        {35, ions, optimum, 22, 12, 1, 0, {}, {}},
        {40, resolution, optimum, -1400, 150, 1, 0, {}, {}},
        {50, ions, rising, 150, 40, 1, 0, {}, {}},
        {51, ions, rising, 3, 1.2, 1, 0, {}, {}},
        {52, ions, rising, 12, 5, 1, 0, {}, {}},
        {60, gain, power, 600, 1, 10, 0, {}, {}},
        {69, ions, falling, 0.5, 0.36, 1, 0, {}, {}},
        {104, ions, rising, 2000, 400, 1, 0, {0, 3, 5}, {}},
        {105, ions, rising, 1400, 300, 1, 0, {4}, {}},
        {106, ions, rising, 1000, 200, 1, 0, {2, 6}, {}},
        {107, ions, rising, 2000, 400, 1, 0, {8}, {}},
        {116, ions, rising, 1000, 200, 1, 0, {1}, {}},
        {121, ions, rising, 2000, 400, 1, 0, {7, 10}, {}},
        {123, ions, rising, 200, 40, 1, 0, {7, 8}, {}},
        {124, ions, rising, 120, 25, 1, 0, {4}, {}},
        {125, ions, rising, 2, 0.6, 1, 0, {7, 10}, positive},
        {126, ions, rising, 8, 2, 1, 0, {7, 10}, negative},
        {165, ions, rising, 2000, 400, 1, 0, {9, 11}, {}},
        {167, ions, rising, 5, 1.5, 1, 0, {9, 11}, {}},
        {169, ions, rising, 200, 40, 1, 0, {9, 11}, {}},
    };
}

}  // namespace korvane::simulation
