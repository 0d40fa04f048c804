// The embedded instrument's mass-time calibration: square law plus polynomial terms.
#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "korvane/embedded_parts.h"
#include "platform/text.h"

namespace korvane {

namespace {

[[noreturn]] void raise_no_time(double mass) {
    raise_runtime_fault(error_number::invalid_call, "no flight time for mass[", mass, "]");
}

/// m = (A (t - B))^2 + sum of c_p t^p over the used terms p, t in ns. The flight time of a mass is the solution at or
/// above B that lies nearest to the one of the square law alone; relative error of the inverse below 1e-12.
class SquareLawCalibration final : public MassTimeCalibration {
public:
    SquareLawCalibration(const CalibrationCoefficients& nanoseconds, VariantArray<std::int32_t> use_flags,
                         const CalibrationSettings& settings)
        : coefficients_(nanoseconds), use_flags_(std::move(use_flags)), settings_(settings) {
        collect_terms();
    }

    CalibrationCoefficients coefficients() const override { return coefficients_; }
    void set_coefficients(const CalibrationCoefficients& nanoseconds) override {
        coefficients_ = nanoseconds;
        collect_terms();
    }
    CalibrationSettings settings() const override { return settings_; }
    void set_settings(const CalibrationSettings& settings) override { settings_ = settings; }
    VariantArray<std::int32_t> use_flags() const override { return use_flags_; }

    double mass_from_time(double time_ns) const override { return mass_and_slope(time_ns).mass; }
    double time_from_mass(double mass) const override {
        return polynomial_.empty() ? square_law_time(mass) : time_with_terms(mass);
    }

    std::shared_ptr<MassTimeCalibration> clone() const override {
        return std::make_shared<SquareLawCalibration>(*this);
    }

private:
    struct MassAndSlope {
        double mass;
        double slope;  // amu per ns
    };

    void collect_terms() {
        polynomial_.clear();
        auto coefficient = std::begin(calibration_coefficients) + 2;  // C
        std::int32_t term = use_flags_.is_empty() ? 0 : use_flags_.lower_bound();
        for (const auto flag : use_flags_.elements()) {
            if (flag == 1 && coefficient != std::end(calibration_coefficients)) {
                if (term < 0) raise_runtime_fault(error_number::invalid_call, "calibration term[", term, "]");
                polynomial_.resize(static_cast<std::size_t>(term) + 1);
                polynomial_.back() = coefficients_.*(coefficient++)->second;
            }
            ++term;
        }
        if (std::ranges::all_of(polynomial_, [](double value) { return value == 0; })) polynomial_.clear();
    }

    MassAndSlope mass_and_slope(double time_ns) const {
        const double root = coefficients_.A * (time_ns - coefficients_.B);
        double value = 0, slope = 0;
        for (auto term = polynomial_.rbegin(); term != polynomial_.rend(); ++term) {
            slope = slope * time_ns + value;
            value = value * time_ns + *term;
        }
        return {root * root + value, 2 * coefficients_.A * root + slope};
    }

    double square_law_time(double mass) const {
        const double time_ns = coefficients_.B + std::sqrt(mass) / std::abs(coefficients_.A);
        if (!std::isfinite(time_ns)) raise_no_time(mass);
        return time_ns;
    }

    double time_with_terms(double mass) const {
        const double law_ns = coefficients_.B + std::sqrt(std::max(mass, 0.0)) / std::abs(coefficients_.A);
        const double start_ns = std::isfinite(law_ns) ? law_ns : coefficients_.B;
        // Outwards until the mass is passed on one side or the other.
        const bool start_above = mass_and_slope(start_ns).mass > mass;
        double step_ns = std::max(1e-6 * std::abs(start_ns - coefficients_.B), 1e-3);
        for (double low_ns = start_ns, high_ns = start_ns;; step_ns *= 2) {
            const double lower_ns = std::max(coefficients_.B, start_ns - step_ns), higher_ns = start_ns + step_ns;
            const double low_mass = mass_and_slope(lower_ns).mass, high_mass = mass_and_slope(higher_ns).mass;
            if (!std::isfinite(low_mass) || !std::isfinite(high_mass)) raise_no_time(mass);
            if ((low_mass > mass) != start_above) return refine(mass, lower_ns, low_ns);
            if ((high_mass > mass) != start_above) return refine(mass, high_ns, higher_ns);
            low_ns = lower_ns;
            high_ns = higher_ns;
        }
    }

    double refine(double mass, double low_ns, double high_ns) const {
        const bool rising = mass_and_slope(high_ns).mass > mass;
        double time_ns = 0.5 * (low_ns + high_ns);
        for (int iteration = 0; iteration < 200; ++iteration) {
            const auto [value, slope] = mass_and_slope(time_ns);
            ((value > mass) == rising ? high_ns : low_ns) = time_ns;
            double next_ns = time_ns - (value - mass) / slope;
            // Newton must stay inside the bracket; where it does not, halving it always helps.
            if (!(next_ns >= low_ns && next_ns <= high_ns)) next_ns = 0.5 * (low_ns + high_ns);
            const double change_ns = std::abs(next_ns - time_ns);
            time_ns = next_ns;
            if (change_ns <= 1e-15 * std::abs(time_ns)) break;
        }
        return time_ns;
    }

    CalibrationCoefficients coefficients_;
    VariantArray<std::int32_t> use_flags_;
    CalibrationSettings settings_;
    std::vector<double> polynomial_;  // coefficient of t^p at p; empty when no used term has a coefficient
};

}  // namespace

CalibrationObject make_square_law_calibration(const CalibrationCoefficients& nanoseconds,
                                              VariantArray<std::int32_t> use_flags,
                                              const CalibrationSettings& settings) {
    return std::make_shared<SquareLawCalibration>(nanoseconds, std::move(use_flags), settings);
}

}  // namespace korvane
