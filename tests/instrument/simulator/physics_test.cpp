// Spectra and isotope patterns against the formulas on which the simulation is built.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <tuple>

#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/simulator_bench.h"

namespace korvane {
namespace {

using simulation::isotope_pattern;
using simulation::parse_formula;

constexpr double test_mz = 500.0;
const double test_time_ns = std::sqrt(test_mz) / 4.5e-4 + 20;

/// An instrument that shows one ion of the given number of ions, nothing else, on a clean detector.
SimulatorBench single_ion(double ions, const char* statistics, double spread, double half_duration_ns, int rate) {
    return SimulatorBench(
        fmt::format(R"({{"sample": {{"ions": [{{"mz": {}, "ions": {}}}]}}, "background": {{"count": 0}},
            "detector": {{"statistics": "{}", "pulse_height_spread": {}, "noise_counts": 0, "baseline_counts": 0}},
            "instrument": {{"spectrum_start_ns": {}, "spectrum_duration_ns": {}}}, "setpoints": {{"SamplingRate": {}}}}})",
                    test_mz, ions, statistics, spread, test_time_ns - half_duration_ns, 2 * half_duration_ns, rate),
        3);
}

TEST(SpectrumPhysics, NumbersOfIonsHaveTheStatisticsOfTheDetector) {
    constexpr int spectra = 400;
    for (const auto& [ions, spread, statistics] : {std::tuple{50, 0.0, "counting"},
                                                   {2000, 0.0, "counting"},
                                                   {500, 0.0, "pulse"},
                                                   {500, 0.5, "pulse"},
                                                   {500, 1.0, "pulse"}}) {
        SimulatorBench bench = single_ion(ions, statistics, spread, 100, 2);
        Spread sums;
        for (int i = 0; i < spectra; ++i) {
            const AcquiredSpectrum spectrum = bench.acquire();
            const auto counts = spectrum.y_data.elements();
            sums.add(std::accumulate(counts.begin(), counts.end(), 0.0) / 40);  // counts an ion
        }
        const double variance = ions * (1 + spread * spread);
        EXPECT_NEAR(sums.mean(), ions, 5 * std::sqrt(variance / spectra)) << ions << " " << spread;
        EXPECT_NEAR(sums.variance() / variance, 1.0, 6 * std::sqrt(2.0 / spectra)) << ions << " " << spread;
    }
}

// Mean and spread of the arrival: the tail moves the mean by f l sigma and widens by sigma sqrt(1 + 2 f l^2 - (f l)^2).
TEST(SpectrumPhysics, PeaksHaveThePositionAndWidthOfTheModelAtEveryRateAndStatistics) {
    for (const auto statistics : {"counting", "pulse"})
        for (const int rate : {1, 2, 3}) {
            SimulatorBench bench = single_ion(20000, statistics, 0.5, 700, rate);
            double weight = 0, first = 0, second = 0;
            for (int i = 0; i < 60; ++i) {
                const AcquiredSpectrum spectrum = bench.acquire();
                double t = -700;
                for (const double counts : spectrum.y_data.elements()) {
                    weight += counts;
                    first += counts * t;
                    second += counts * t * t;
                    t += std::array{1.0, 0.5, 0.25}[rate - 1];
                }
            }
            const double centre = first / weight, spread = std::sqrt(second / weight - centre * centre);
            const double sigma = std::hypot(test_time_ns / 80000, 1.18) / std::sqrt(8 * std::log(2.0));
            constexpr double f = 0.08, length = 1.5, reference = 0.067;
            EXPECT_NEAR(centre, sigma * (f * length - reference), 0.01 * sigma) << rate;
            const double widening = std::sqrt(1 + 2 * f * length * length - f * f * length * length);
            // Below 1.5 samples a width the sum over samples is a poor integral.
            EXPECT_NEAR(spread / (sigma * widening), 1.0, rate == 1 ? 0.03 : 0.01) << rate;
        }
}

TEST(IsotopePattern, MassesAndRatiosAreThoseOfIndependentAtoms) {
    for (const auto& [formula, charge, mz] : {std::tuple{"Na(CF3COONa)18", 1, 2470.5357},
                                              {"CF3COO(CF3COONa)17", -1, 2424.5573},
                                              {"H", 1, 1.007276},
                                              {"Na(CF3COONa)Na", 2, 90.976625}})
        EXPECT_NEAR(isotope_pattern(parse_formula(formula), charge, 1e-3).front().mz, mz, 1e-4) << formula;
    EXPECT_EQ(parse_formula("Na(CF3COONa)2"), parse_formula("Na3C4F6O4"));
    EXPECT_EQ(parse_formula("((CH2)3O)2"), parse_formula("C6H12O2"));
    // 36 carbons, 36 oxygens: M+1 over M from 13C and 17O, M+2 from 18O and pairs.
    const auto peaks = isotope_pattern(parse_formula("Na(CF3COONa)18"), 1, 1e-6);
    const double carbon = 36 * 0.0107 / 0.9893, oxygen17 = 36 * 0.00038 / 0.99757, oxygen18 = 36 * 0.00205 / 0.99757;
    EXPECT_NEAR(peaks[1].fraction / peaks[0].fraction, carbon + oxygen17, 1e-9);
    const double pairs = carbon * carbon * 35 / 36 / 2 + carbon * oxygen17 + oxygen17 * oxygen17 * 35 / 36 / 2;
    EXPECT_NEAR(peaks[2].fraction / peaks[0].fraction, pairs + oxygen18, 1e-9);
    const double excess = (carbon * 1.00335483534 + oxygen17 * 1.00421713669) / (carbon + oxygen17);
    EXPECT_NEAR(peaks[1].mz - peaks[0].mz, excess, 1e-9);
    for (const char* formula : {"Cl4", "S6", "K2", "C500H800N100O200", "P", "Na2F3"}) {
        double sum = 0;
        for (const simulation::IsotopePeak& peak : isotope_pattern(parse_formula(formula), -1, 1e-9))
            sum += peak.fraction;
        EXPECT_NEAR(sum, 1.0, 1e-6) << formula;
    }
    for (const std::string formula :
         {"", "Xx", "na", "C0", "C(", "C)", "()3", "C-1", "C 2", "C1000000", "((C9999)9999)9999"})
        EXPECT_NE(raised([&] { parse_formula(formula); }).find("formula[" + formula + "]"), std::string::npos);
    EXPECT_TRUE(raised([] { parse_formula(std::string(5000, '(')); }).starts_with("5|"));
}

// The values were computed once; another machine, compiler or optimisation must find the same.
TEST(Determinism, SpectraDependOnSeedNumberAndSettingsAlone) {
    const std::tuple<const char*, std::uint64_t, double> scenes[] = {
        {R"({"setpoints": {"MCP": 630, "FragmentTune": 120}})", 276430964265603212u, 0},
        {R"({"detector": {"statistics": "pulse"}, "instrument": {"random_phase": true}})", 13290851413166828080u, 0},
        {R"({"flight": {"mass_drift_ppm_per_minute": 900}, "detector": {"dead_masses": [158.964, 700]},
             "sample": {"calibrant_factor": 0.5}, "setpoints": {"PreAmpOffset": 3, "SlicerPosition": 7}})",
         14618791098922562456u, 1},
        // Clipped, and cut by both edges.
        {R"({"instrument": {"spectrum_start_ns": 49708, "spectrum_duration_ns": 60}, "setpoints": {"MCP": 1000},
             "sample": {"ions": [{"mz": 500, "ions": 1e7}, {"mz": 500.1, "ions": 1e7}]}})",
         13987715129790458815u, 0}};
    for (const auto& [scene, known, polarity] : scenes)
        for (const std::uint64_t seed : {42, 43}) {
            SimulatorBench bench(scene, seed);
            std::uint64_t hash = 0xcbf29ce484222325u;
            for (int number = 0; number < 2; ++number) {
                // A detour whose spectrum nobody takes changes nothing.
                for (const auto& [rate, other] : {std::pair{3.0, 1 - polarity}, {2.0, polarity}}) {
                    bench.set("SamplingRate", rate);
                    bench.set("Polarity", other);
                }
                const AcquiredSpectrum spectrum = bench.acquire();
                for (const double value : spectrum.y_data.elements())
                    hash = (hash ^ static_cast<std::uint64_t>(value)) * 0x100000001b3u;
                if (spectrum.start_time_ns == 10000) {
                    EXPECT_EQ(spectrum.mass_data.at(777),
                              bench.globals->calibrations().calibration(0)->mass_from_time(10388.5));
                }
            }
            EXPECT_EQ(hash == known, seed == 42) << hash;
        }
}

}  // namespace
}  // namespace korvane
