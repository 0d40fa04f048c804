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

class BackgroundPlacer {
public:
    BackgroundPlacer(const Scene& scene, const MassTimeCalibration& law, RandomStream random)
        : scene_(scene), law_(law), random_(random) {}

    void place(IonPeaks& peaks) {
        for (const IonPeak& peak : peaks) taken_times_.insert(peak.flight_time_ns);
        for (std::int32_t i = 0; i < scene_.background.count; ++i) peaks.push_back(next_peak());
    }

private:
    IonPeak next_peak() {
        const BackgroundSetup& setup = scene_.background;
        for (int attempt = 0; attempt < 1000; ++attempt) {
            IonPeak peak;
            peak.mz = log_uniform(random_, setup.least_mz, setup.most_mz);
            peak.ions = log_uniform(random_, setup.least_ions, setup.most_ions);
            peak.flight_time_ns = law_.time_from_mass(peak.mz);
            peak.background = true;
            if (!is_free(peak.flight_time_ns)) continue;
            taken_times_.insert(peak.flight_time_ns);
            return peak;
        }
        raise_runtime_fault(error_number::invalid_call, "background.count[" + std::to_string(setup.count) +
                                                            "] peaks do not fit with background.separation_sigmas");
    }
    bool is_free(double time_ns) const {
        const PeakWidth width =
            peak_width(time_ns, scene_.peak_shape.resolution_limit, scene_.peak_shape.detector_width_ns);
        const double distance = scene_.background.separation_sigmas * width.total_sigma_ns;
        const auto next = taken_times_.lower_bound(time_ns - distance);
        return next == taken_times_.end() || *next > time_ns + distance;
    }

    const Scene& scene_;
    const MassTimeCalibration& law_;
    RandomStream random_;
    std::set<double> taken_times_;
};

}  // namespace

std::array<IonPeaks, 2> build_ion_population(const Scene& scene, const MassTimeCalibration& law, std::uint64_t seed) {
    std::array<IonPeaks, 2> population;
    for (const SceneIon& ion : scene.sample.ions) add_scene_ion(ion, scene, law, population[ion.charge > 0 ? 0 : 1]);
    for (std::size_t polarity = 0; polarity < population.size(); ++polarity) {
        BackgroundPlacer(scene, law, RandomStream(seed, polarity)).place(population[polarity]);
        std::ranges::stable_sort(population[polarity], {}, &IonPeak::mz);
    }
    return population;
}

}  // namespace korvane::simulation
