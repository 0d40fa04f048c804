// Draws the ions of a spectrum and adds their signal.
#pragma once

#include <cstdint>
#include <vector>

#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/random_stream.h"
#include "instrument/simulator/signal_buffer.h"

namespace korvane::simulation {

/// Counting statistics: every sample holds an independent Poisson number of ions.
void add_counted_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random, SignalBuffer& signal);

/// Pulse statistics: every ion arrives at a time of its own and makes one detector pulse of random height.
class PulseStatistics {
public:
    PulseStatistics(const PeakShapeSetup& shape, double height_spread);

    void add_ions(const ExpectedSignal& expected, double counts_per_ion, RandomStream random, SignalBuffer& signal);

private:
    void prepare_pulses(double detector_sigma_samples, double counts_per_ion);
    double draw_delay(const ExpectedPeak& peak, std::uint64_t bits) const;
    void add_pulse(double position_samples, std::int64_t height, SignalBuffer& signal) const;

    std::uint64_t tail_threshold_ = 0;  // of 32 bits
    double tail_length_sigmas_ = 0;
    std::vector<std::int64_t> heights_;  // quantiles, 1024 is the mean
    std::vector<std::int64_t> pulses_;   // one pulse for each sub-sample phase
    std::int64_t half_length_ = 0;       // samples on either side of the pulse's own
    double prepared_sigma_samples_ = -1, prepared_counts_ = -1;
};

}  // namespace korvane::simulation
