// How well a peak of known truth can be measured at best.
#pragma once

#include "support/synthetic_spectrum.h"

namespace korvane {

/// Least variances of any unbiased estimate on the sampling grid that starts at `start_time_ns`.
struct InformationBounds {
    /// 1 / sum of lambda'^2 J(lambda) with J the information of one Poisson + normal sample, or 1 / (mu' C^-1 mu') with
    /// C the covariance of overlapping pulses.
    double position_variance_ns2 = 0;
    /// The same for the logarithm of the width, the number of ions being unknown; 1 / (2 n) for pulses.
    double relative_width_variance = 0;
};
InformationBounds information_bounds(const SyntheticSet& set, const TruePeak& peak, double start_time_ns);

}  // namespace korvane
