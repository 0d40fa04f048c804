// Scatter of weighted sums of samples where every ion is a pulse over several samples.
#pragma once

#include <cstddef>
#include <span>

#include "instrument/peakfinder/gaussian_samples.h"
#include "instrument/peakfinder/matrix3.h"

namespace korvane {

struct IonPulses {
    double variance = 1;         ///< of a sum of counts, per count
    double sigma = 1;            ///< of a pulse, samples
    double tail_fraction = 0;    ///< part of the ions that come late
    double tail_pulse_part = 0;  ///< of the pulse's variance in what their delay goes by
};

/// Covariance of the three sums over samples of influence x u^k x sample, k = 0 to 2, with u the distance from the
/// peak's centre in its deviations: the integral over the ions' arrival of the product of what one pulse adds to two
/// sums. The arrival is the peak's spread without the pulse's. `influence` belongs to samples first, first + 1, ...
Matrix3 pulse_scatter(const PeakShape& peak, const IonPulses& ions, std::ptrdiff_t first,
                      std::span<const double> influence);

}  // namespace korvane
