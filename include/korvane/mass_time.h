// Seam: the mass-time calibration object that the instrument lends.
#pragma once

#include <memory>
#include <vector>

#include "korvane/export.h"
#include "korvane/records.h"

namespace korvane {

/// Converts between flight time (ns) and mass (amu): m = (A (t - B))^2 plus, for every term number p whose use flag is
/// 1, the next of the coefficients C to H times t^p.
class KORVANE_API MassTimeCalibration {
public:
    virtual ~MassTimeCalibration() = default;

    virtual CalibrationCoefficients coefficients() const = 0;  ///< in nanoseconds
    virtual void set_coefficients(const CalibrationCoefficients& nanoseconds) = 0;
    virtual CalibrationSettings settings() const = 0;
    virtual void set_settings(const CalibrationSettings& settings) = 0;
    /// `ValueUseFlags` of the calibration definition, indexed by term number; 1 means used.
    virtual VariantArray<std::int32_t> use_flags() const = 0;

    /// amu.
    virtual double mass_from_time(double time_ns) const = 0;
    /// ns; error 5 naming a mass (amu) of which no flight time exists.
    virtual double time_from_mass(double mass) const = 0;
    /// The two above for arrays, element by element.
    virtual std::vector<double> masses_from_times(const std::vector<double>& times_ns) const;
    virtual std::vector<double> times_from_masses(const std::vector<double>& masses) const;

    /// An independent calibration with the same content; not null.
    virtual std::shared_ptr<MassTimeCalibration> clone() const = 0;
};

using CalibrationObject = std::shared_ptr<MassTimeCalibration>;

}  // namespace korvane
