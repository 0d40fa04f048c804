#include "instrument/simulator/ion_population.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "instrument/simulator/isotope_pattern.h"
#include "instrument/simulator/peak_shape.h"
#include "instrument/simulator/portable_math.h"
#include "instrument/simulator/random_stream.h"
#include "korvane/error.h"

namespace korvane::simulation {

namespace {

void add_scene_ion(const SceneIon& ion, const Scene& scene, const MassTimeCalibration& law, IonPeaks& peaks) {
    std::vector<IsotopePeak> pattern;
    if (ion.mz)
        pattern.push_back({*ion.mz, 1.0});
    else
        pattern = isotope_pattern(parse_formula(ion.formula), ion.charge, scene.sample.least_isotope_fraction);
    for (const IsotopePeak& isotope : pattern)
        peaks.push_back(
            {isotope.mz, law.time_from_mass(isotope.mz), ion.ions * isotope.fraction, ion.calibrant, false});
}

double log_uniform(RandomStream& random, double low, double high) {
    return low * portable_exp(random.uniform() * portable_log(high / low));
}

/// Places the background between the peaks that are there.
void add_background(const Scene& scene, const MassTimeCalibration& law, RandomStream random, IonPeaks& peaks) {
    const BackgroundSetup& setup = scene.background;
    std::set<double> taken_times;
    for (const IonPeak& peak : peaks) taken_times.insert(peak.flight_time_ns);
    const auto is_free = [&](double time_ns) {
        const PeakWidth width =
            peak_width(time_ns, scene.peak_shape.resolution_limit, scene.peak_shape.detector_width_ns);
        const double distance = setup.separation_sigmas * width.total_sigma_ns;
        const auto next = taken_times.lower_bound(time_ns - distance);
        return next == taken_times.end() || *next > time_ns + distance;
    };
    constexpr int most_in_a_row = 1000, most_attempts = 2000000;
    for (int placed = 0, attempts = 0, all = 0; placed < setup.count; ++attempts, ++all) {
        if (attempts == most_in_a_row || all == most_attempts)
            raise_runtime_fault(error_number::invalid_call, "background.count[" + std::to_string(setup.count) +
                                                                "] peaks do not fit with background.separation_sigmas");
        IonPeak peak{.background = true};
        peak.mz = log_uniform(random, setup.least_mz, setup.most_mz);
        peak.ions = log_uniform(random, setup.least_ions, setup.most_ions);
        peak.flight_time_ns = law.time_from_mass(peak.mz);
        if (!is_free(peak.flight_time_ns)) continue;
        taken_times.insert(peak.flight_time_ns);
        peaks.push_back(peak);
        ++placed;
        attempts = -1;
    }
}

}  // namespace

std::array<IonPeaks, 2> build_ion_population(const Scene& scene, const MassTimeCalibration& law, std::uint64_t seed) {
    constexpr int most_atoms = 5000000;  // of all formulas: some seconds for their patterns
    int atoms = 0;
    for (const SceneIon& ion : scene.sample.ions)
        for (const auto& [symbol, count] : ion.mz ? Composition() : parse_formula(ion.formula))
            if ((atoms += count) > most_atoms)
                raise_runtime_fault(error_number::invalid_call,
                                    "the formulas have more than " + std::to_string(most_atoms) + " atoms");
    std::array<IonPeaks, 2> population;
    for (const SceneIon& ion : scene.sample.ions) add_scene_ion(ion, scene, law, population[ion.charge > 0 ? 0 : 1]);
    for (std::size_t polarity = 0; polarity < population.size(); ++polarity) {
        add_background(scene, law, RandomStream(seed, polarity), population[polarity]);
        std::ranges::stable_sort(population[polarity], {}, &IonPeak::mz);
    }
    return population;
}

}  // namespace korvane::simulation
