// Generates the counts of one spectrum: draws its ions, adds up their signal and digitises it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/portable_random.h"

namespace korvane::simulation {

class SpectrumGenerator {
public:
    /// Builds the ions; errors as `build_ion_population`. `scene` must outlive the generator.
    SpectrumGenerator(const Scene& scene, std::uint64_t seed);
    ~SpectrumGenerator();

    /// Part of a sample by which the spectrum of this number starts later: 0 unless the scene asks for a random phase.
    double start_phase(std::int64_t spectrum_number) const;

    /// Counts of every sample of the spectrum of this number. `revision` changes whenever the conditions may have
    /// changed. The same seed, number, conditions and timing give the same counts.
    std::vector<double> generate(std::int64_t spectrum_number, const AcquisitionConditions& conditions,
                                 const SpectrumTiming& timing, std::uint64_t revision);

    /// The peaks that it draws from, by polarity.
    const std::array<IonPeaks, 2>& population() const { return population_; }

private:
    struct ExpectationKey {
        std::uint64_t revision;
        std::int32_t polarity;
        SpectrumTiming timing;
        friend bool operator==(const ExpectationKey&, const ExpectationKey&) = default;
    };

    struct Stages;  // between what is expected and the counts

    RandomStream stream(std::int64_t spectrum_number, std::uint64_t purpose) const;
    const ExpectedSignal& expect(const ExpectationKey& key, const AcquisitionConditions& conditions);
    void silence_dead_masses(const AcquisitionConditions& conditions, const SpectrumTiming& timing,
                             std::vector<double>& counts) const;

    const Scene& scene_;
    std::uint64_t seed_;
    std::array<IonPeaks, 2> population_;
    std::vector<IonPeak> dead_peaks_;
    PeakShape shape_;
    std::unique_ptr<Stages> stages_;
    std::optional<ExpectationKey> expected_for_;
    ExpectedSignal expected_;
};

}  // namespace korvane::simulation
