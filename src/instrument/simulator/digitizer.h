// The digitiser: baseline, electronic noise, summed 8-bit samples that clip, whole counts.
#pragma once

#include <cstdint>
#include <vector>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/random_stream.h"
#include "instrument/simulator/signal_buffer.h"

namespace korvane::simulation {

class Digitizer {
public:
    explicit Digitizer(const DetectorSetup& setup) : setup_(setup) {}

    /// Turns the signal into counts and leaves the buffer empty. `drift_phase` is in turns.
    std::vector<double> digitize(SignalBuffer& signal, const AcquisitionConditions& conditions, double drift_phase,
                                 RandomStream random);

private:
    void prepare_noise(double noise_counts);
    std::int32_t baseline_at_block(std::size_t block, const AcquisitionConditions& conditions,
                                   double drift_phase) const;

    DetectorSetup setup_;
    std::vector<std::int32_t> noise_;  // quantiles in 1/64 counts
    double prepared_noise_counts_ = -1;
};

}  // namespace korvane::simulation
