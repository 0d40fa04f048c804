// The ions of a scene as peaks: every isotope of every ion and the background, by polarity.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "instrument/simulator/scene.h"
#include "korvane/mass_time.h"

namespace korvane::simulation {

struct IonPeak {
    double mz = 0;
    double flight_time_ns = 0;  ///< by the scene's law, without drift
    double ions = 0;            ///< a spectrum of the reference transients at default setpoints
    bool calibrant = false;     ///< falls with the calibrant factor
    bool background = false;
};

/// Peaks of one polarity, ascending by m/z.
using IonPeaks = std::vector<IonPeak>;

/// Places the background by the seed. Error 5 naming the ion whose flight time does not exist, or saying that the
/// background ions do not fit with their separation.
std::array<IonPeaks, 2> build_ion_population(const Scene& scene, const MassTimeCalibration& law, std::uint64_t seed);

}  // namespace korvane::simulation
