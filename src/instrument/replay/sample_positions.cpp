#include "instrument/replay/sample_positions.h"

#include <cmath>
#include <limits>

#include "instrument/replay/binary_array.h"
#include "korvane/error.h"

namespace korvane::replay {

namespace {

constexpr double nowhere_near = std::numeric_limits<double>::infinity();

double rounding_of_32_bit(double value) {
    const auto rounded = static_cast<float>(value);
    return 0.5 * (std::nextafter(rounded, std::numeric_limits<float>::max()) - rounded);
}

class Locator {
public:
    Locator(const MassTimeCalibration& calibration, const TimeScale& scale, bool is_32_bit)
        : calibration_(calibration), scale_(scale), is_32_bit_(is_32_bit) {}

    /// Deviation of a mass from the law at a position, in steps; the rounding granted is taken off.
    double deviation(double mass, std::int64_t step) const {
        const double here = mass_at(step);
        const double mass_step = mass_at(step + 1) - here;
        const double granted = is_32_bit_ ? rounding_of_32_bit(mass) : 0;
        const double off = std::abs(mass - here) - granted;
        return mass_step > 0 ? std::max(0.0, off) / mass_step : nowhere_near;
    }

    double nearest_step(double mass) const {
        try {
            return std::round((calibration_.time_from_mass(mass) - scale_.origin_ns) / scale_.interval_ns);
        } catch (const Error&) {
            return nowhere_near;  // no flight time: the mass does not lie on this axis
        }
    }

private:
    double mass_at(std::int64_t step) const {
        return calibration_.mass_from_time(scale_.origin_ns + static_cast<double>(step) * scale_.interval_ns);
    }

    const MassTimeCalibration& calibration_;
    TimeScale scale_;
    bool is_32_bit_;
};

}  // namespace

SamplePositions locate_samples(std::span<const double> mz, const MassTimeCalibration& calibration,
                               const TimeScale& scale) {
    const Locator locator(calibration, scale, fits_32_bit(mz));
    SamplePositions positions;
    positions.steps.reserve(mz.size());
    for (std::size_t i = 0; i < mz.size() && positions.met(); ++i) {
        std::int64_t step = i == 0 ? 0 : positions.steps.back() + 1;
        double deviation = i == 0 ? nowhere_near : locator.deviation(mz[i], step);
        if (deviation > largest_deviation_steps) {
            const double nearest = locator.nearest_step(mz[i]);
            const bool ascends = std::abs(nearest) < 1e15 && (i == 0 || nearest >= static_cast<double>(step));
            step = ascends ? static_cast<std::int64_t>(nearest) : step;
            deviation = ascends ? locator.deviation(mz[i], step) : nowhere_near;
        }
        positions.steps.push_back(step);
        if (deviation <= positions.worst_deviation_steps && i > 0) continue;
        positions.worst_deviation_steps = deviation;
        positions.worst_sample = i;
    }
    return positions;
}

}  // namespace korvane::replay
