// How abundance, detector gain and resolution follow the setpoints.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "korvane/records.h"

namespace korvane::simulation {

enum class ResponseTarget { ions, gain, resolution };

enum class ResponseShape {
    rising,           ///< 1 / (1 + exp(-(v - midpoint) / width)): rises to a plateau
    falling,          ///< 1 / (1 + exp((v - midpoint) / width)): a plateau, then falls
    optimum,          ///< 1 / (1 + ((v - midpoint) / width)^2): best at the midpoint
    power,            ///< (v / midpoint)^exponent
    low_mass_cutoff,  ///< 1 / (1 + (v midpoint / m)^exponent): falls with the value, the earlier the lighter the ion
};

inline constexpr double least_default_response = 1e-6;  ///< of a curve at its setpoint's default value
inline constexpr double greatest_response = 1e6;

struct ResponseCurve {
    std::int32_t setpoint = 0;
    ResponseTarget acts_on = ResponseTarget::ions;
    ResponseShape shape = ResponseShape::rising;
    double midpoint = 0;
    double width = 1;
    double exponent = 1;
    double mass_exponent = 0;                  ///< the midpoint is multiplied by (m / 1000)^mass_exponent
    std::vector<std::int32_t> sources;         ///< source type codes for which it holds; empty: all
    std::optional<PolaritySetpoint> polarity;  ///< nothing: both

    friend bool operator==(const ResponseCurve&, const ResponseCurve&) = default;

    bool holds_for(std::int32_t source_type, std::int32_t spectrum_polarity) const;
    /// Unnormalised response, not negative, at a setpoint value and a mass.
    double raw(double value, double mz) const;
    /// Response relative to the one at the setpoint's default value, which is 1; at most `greatest_response`.
    double relative(double value, double default_value, double mz) const;
};

/// The curves of the default scene.
std::vector<ResponseCurve> default_responses();

}  // namespace korvane::simulation
