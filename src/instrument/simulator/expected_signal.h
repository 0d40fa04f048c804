// What is expected of every peak under the present conditions; kept between spectra while nothing changes.
#pragma once

#include <cstddef>
#include <vector>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/peak_shape.h"

namespace korvane::simulation {

/// One peak on the sample axis.
struct ExpectedPeak {
    double centre_samples = 0;  ///< centre of the undelayed peak; sample 0 is at 0
    double arrival_sigma_samples = 0;
    double total_sigma_samples = 0;
    double ions = 0;
    std::size_t first_sample = 0;  ///< where its samples begin
    std::size_t first_value = 0;   ///< their place in the two arrays of `ExpectedSignal`
    std::size_t sample_count = 0;
};

struct ExpectedSignal {
    std::vector<ExpectedPeak> peaks;
    double detector_sigma_samples = 0;
    // For each sample of each peak: the expected number of ions, and the probability that none comes (where that
    // number is below 10).
    std::vector<double> ions;
    std::vector<double> zero_probabilities;
};

/// How the time axis of a spectrum lies over the ions' flight times.
struct SpectrumTiming {
    double start_time_ns = 0;
    double time_factor = 1;  ///< flight times are longer by this, from mass drift
    friend bool operator==(const SpectrumTiming&, const SpectrumTiming&) = default;
};

/// Where a peak lies: the centre of its undelayed part, ns.
double peak_centre_ns(const IonPeak& peak, double total_sigma_ns, const PeakShapeSetup& setup, double time_factor);

ExpectedSignal expected_signal(const IonPeaks& peaks, const Scene& scene, const PeakShape& shape,
                               const AcquisitionConditions& conditions, const SpectrumTiming& timing);

}  // namespace korvane::simulation
