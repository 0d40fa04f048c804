// The ions of a scene as peaks: every isotope of every ion and the background, by polarity.
#pragma once

#include "instrument/simulator/scene.h"
#include "korvane/mass_time.h"

namespace korvane::simulation {

/// Atoms by element symbol.
using Composition = std::map<std::string, int, std::less<>>;

/// Reads a formula such as "Na(CF3COONa)18": symbols, counts and parentheses. Elements: H C N O F Na P S Cl K.
/// Error 5 naming the formula and what is wrong with it.
Composition parse_formula(std::string_view formula);

struct IsotopePeak {
    double mz = 0;
    double fraction = 0;  ///< of all ions of the species
};

inline constexpr double electron_mass = 5.48579909065e-4;

/// Peaks of the ion, lightest first: isotopologues of the same nucleon number are one peak at their mean mass.
/// Fractions below `least_fraction` are left out, the first peak (lightest isotopes only) never. m/z takes the mass of
/// the missing or extra electrons into account. `charge` is signed and not 0.
std::vector<IsotopePeak> isotope_pattern(const Composition& composition, int charge, double least_fraction);

struct IonPeak {
    double mz = 0;
    double flight_time_ns = 0;  ///< by the scene's law, without drift
    double ions = 0;            ///< a spectrum of the reference transients at default setpoints
    bool calibrant = false;     ///< falls with the calibrant factor
};

/// Peaks of one polarity, ascending by m/z.
using IonPeaks = std::vector<IonPeak>;

/// Places the background by the seed. Error 5 naming the ion whose flight time does not exist, or saying that the
/// background ions do not fit with their separation.
std::array<IonPeaks, 2> build_ion_population(const Scene& scene, const MassTimeCalibration& law, std::uint64_t seed);

}  // namespace korvane::simulation
