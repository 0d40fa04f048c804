// Generates the counts of one spectrum: draws its ions, adds up their signal and digitises it.
#pragma once

#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/random_stream.h"

namespace korvane::simulation {

class SpectrumGenerator {
public:
    /// Builds the ions; errors as `build_ion_population`. `scene` must outlive the generator.
    SpectrumGenerator(const Scene& scene, std::uint64_t seed);

    /// Part of a sample by which the spectrum of this number starts later: 0 unless the scene asks for a random phase.
    double start_phase(std::int64_t spectrum_number) const;

    /// Counts of every sample of the spectrum of this number. The same seed, number, conditions and timing give the
    /// same counts.
    std::vector<double> generate(std::int64_t spectrum_number, const AcquisitionConditions& conditions,
                                 const SpectrumTiming& timing);

private:
    RandomStream stream(std::int64_t spectrum_number, std::uint64_t purpose) const;
    void prepare(const AcquisitionConditions& conditions);
    void draw_ions(const AcquisitionConditions& conditions, const SpectrumTiming& timing, RandomStream random);
    template <class Add>
    void draw_counts(const ExpectedPeak& peak, double amount_per_ion, RandomStream& random, const Add& add) const;
    template <class Add>
    void draw_pulses(const ExpectedPeak& peak, std::size_t sample_count, RandomStream& random, const Add& add) const;
    std::vector<double> digitized(const AcquisitionConditions& conditions, double drift_phase,
                                  RandomStream random) const;
    void silence_dead_masses(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                             std::vector<double>& counts) const;

    const Scene& scene_;
    std::uint64_t seed_;
    std::array<IonPeaks, 2> population_;  // by polarity
    std::vector<IonPeak> dead_peaks_;
    PeakShape shape_;
    std::vector<std::int64_t> heights_;  // of pulses: quantiles, 1024 is the mean
    double noise_counts_ = -1;           // for which the noise's quantiles stand, in 1/64 counts
    std::vector<std::int32_t> noise_;
    std::vector<std::int64_t> pulses_;  // one pulse for each sub-sample phase
    std::int64_t half_length_ = 0;      // samples on either side of a pulse's own
    std::vector<std::int32_t> signal_;  // of the ions, in 1/64 counts, up to the end of its last block
};

}  // namespace korvane::simulation
