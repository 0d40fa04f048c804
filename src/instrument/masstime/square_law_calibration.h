// The embedded instrument's mass-time calibration: square law plus polynomial terms.
#pragma once

#include <memory>
#include <vector>

#include "korvane/embedded_parts.h"

namespace korvane {

/// m = (A (t - B))^2 + sum of c_p t^p over the used terms p, t in ns. The flight time of a mass is the solution at or
/// above B that lies nearest to the one of the square law alone; relative error of the inverse below 1e-12.
class SquareLawCalibration final : public MassTimeCalibration {
public:
    /// As `make_square_law_calibration`.
    explicit SquareLawCalibration(const CalibrationCoefficients& nanoseconds, VariantArray<std::int32_t> use_flags = {},
                                  const CalibrationSettings& settings = {});

    CalibrationCoefficients coefficients() const override { return coefficients_; }
    void set_coefficients(const CalibrationCoefficients& nanoseconds) override;
    CalibrationSettings settings() const override { return settings_; }
    void set_settings(const CalibrationSettings& settings) override { settings_ = settings; }
    VariantArray<std::int32_t> use_flags() const override { return use_flags_; }

    double mass_from_time(double time_ns) const override;
    double time_from_mass(double mass) const override;

    std::shared_ptr<MassTimeCalibration> clone() const override;

private:
    struct MassAndSlope {
        double mass;
        double slope;  // amu per ns
    };

    struct Bracket {
        double low_ns;
        double high_ns;
    };

    void collect_terms();
    MassAndSlope mass_and_slope(double time_ns) const;
    double square_law_time(double mass) const;
    double time_with_terms(double mass) const;
    Bracket bracket(double mass, double start_ns) const;
    double refine(double mass, double low_ns, double high_ns) const;

    CalibrationCoefficients coefficients_;
    VariantArray<std::int32_t> use_flags_;
    CalibrationSettings settings_;
    std::vector<double> polynomial_;  // coefficient of t^p at p; empty when no used term has a coefficient
};

}  // namespace korvane
