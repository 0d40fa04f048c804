// Spectra against the formulas on which the simulation is built, and measured as the library measures them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "instrument/simulator/simulator_bench.h"
#include "instrument/simulator/spectrum_generator.h"

namespace korvane::simulation {
namespace {

using enum DetectorStatistics;
constexpr double test_mz = 500.0;
const double test_time_ns = std::sqrt(test_mz) / 4.5e-4 + 20;

/// One ion of the given number of ions, nothing else, on a clean detector.
Scene single_ion_scene(double ions, DetectorStatistics statistics = counting) {
    Scene scene = default_scene();
    scene.sample.ions = {{"", test_mz, 1, ions, true}};
    scene.background.count = 0;
    scene.detector.statistics = statistics;
    scene.detector.noise_counts = scene.detector.baseline_counts = 0;
    scene.instrument.spectrum_start_ns = 49000;
    scene.instrument.spectrum_duration_ns = 2000;
    return scene;
}

class Generator {
public:
    explicit Generator(Scene scene, std::uint64_t seed = 3) : scene_(std::move(scene)), generator_(scene_, seed) {
        embedded::Setpoints setpoints("test");
        setpoints.preset(scene_.setpoints);
        conditions = acquisition_conditions(scene_, 0, setpoints);
    }
    std::vector<double> counts() {
        return generator_.generate(number_++, conditions, {scene_.instrument.spectrum_start_ns, 1.0});
    }
    /// Sum of the next spectrum, in ions.
    double ions() {
        const auto values = counts();
        return std::accumulate(values.begin(), values.end(), 0.0) / conditions.counts_per_ion;
    }
    double time_ns(std::size_t sample) const {
        return scene_.instrument.spectrum_start_ns + static_cast<double>(sample) * conditions.sampling_interval_ns;
    }

    AcquisitionConditions conditions;

private:
    const Scene scene_;
    SpectrumGenerator generator_;
    std::int64_t number_ = 0;
};

TEST(SpectrumPhysics, NumbersOfIonsHaveTheStatisticsOfTheDetector) {
    constexpr int spectra = 400;
    for (const auto& [ions, spread, statistics] : {std::tuple{50, 0.0, counting},
                                                   {2000, 0.0, counting},
                                                   {500, 0.0, pulse},
                                                   {500, 0.5, pulse},
                                                   {500, 1.0, pulse}}) {
        Scene scene = single_ion_scene(ions, statistics);
        scene.detector.pulse_height_spread = spread;
        scene.instrument.spectrum_start_ns = test_time_ns - 100;
        scene.instrument.spectrum_duration_ns = 200;
        Generator generator(scene);
        Spread sums;
        for (int i = 0; i < spectra; ++i) sums.add(generator.ions());
        const double variance = ions * (1 + spread * spread);
        EXPECT_NEAR(sums.mean(), ions, 5 * std::sqrt(variance / spectra)) << ions << " " << spread;
        EXPECT_NEAR(sums.variance() / variance, 1.0, 6 * std::sqrt(2.0 / spectra)) << ions << " " << spread;
    }
}

// Mean and spread of the arrival: the tail moves the mean by f l sigma and widens by sigma sqrt(1 + 2 f l^2 - (f l)^2).
TEST(SpectrumPhysics, PeaksHaveThePositionAndWidthOfTheModelAtEveryRateAndStatistics) {
    for (const auto statistics : {counting, pulse})
        for (const double rate : {1.0, 2.0, 3.0}) {
            Scene scene = single_ion_scene(20000, statistics);
            scene.setpoints["SamplingRate"] = rate;
            Generator generator(scene);
            double weight = 0, first = 0, second = 0;
            for (int i = 0; i < 60; ++i) {
                const auto counts = generator.counts();
                for (std::size_t k = 0; k < counts.size(); ++k) {
                    const double t = generator.time_ns(k) - test_time_ns;
                    weight += counts[k];
                    first += counts[k] * t;
                    second += counts[k] * t * t;
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
}  // namespace korvane::simulation
