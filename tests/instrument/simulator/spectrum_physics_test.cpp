// Spectra against the formulas on which the simulation is built.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "instrument/simulator/simulator_bench.h"
#include "instrument/simulator/spectrum_generator.h"

namespace korvane::simulation {
namespace {

constexpr double test_mz = 500.0;

// One ion of the given number of ions, nothing else, on a clean detector.
Scene single_ion_scene(double ions) {
    Scene scene = default_scene();
    scene.sample.ions = {{"", test_mz, 1, ions, true}};
    scene.background.count = 0;
    scene.detector.noise_counts = 0;
    scene.detector.baseline_counts = 0;
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
        return generator_.generate(number_++, conditions, {scene_.instrument.spectrum_start_ns, 1.0}, 1);
    }
    double time_ns(std::size_t sample) const {
        return scene_.instrument.spectrum_start_ns + static_cast<double>(sample) * conditions.sampling_interval_ns;
    }
    const IonPeak& peak() const { return generator_.population()[0].front(); }

    AcquisitionConditions conditions;

private:
    const Scene scene_;
    SpectrumGenerator generator_;
    std::int64_t number_ = 0;
};

double sum_of(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    return sum;
}

// Sums of many spectra of one peak, in ions.
Moments ion_moments(const Scene& scene, int spectra) {
    Generator generator(scene);
    std::vector<double> sums;
    for (int i = 0; i < spectra; ++i) sums.push_back(sum_of(generator.counts()) / generator.conditions.counts_per_ion);
    return Moments(sums);
}

TEST(SpectrumPhysics, CountingStatisticsAreThoseOfIons) {
    for (const double ions : {50.0, 2000.0}) {
        const Moments moments = ion_moments(single_ion_scene(ions), 1500);
        EXPECT_NEAR(moments.mean / ions, 1.0, 5 / std::sqrt(1500 * ions)) << ions;
        EXPECT_NEAR(moments.variance / ions, 1.0, 5 * std::sqrt(2.0 / 1500)) << ions;
    }
}

TEST(SpectrumPhysics, PulseHeightsAddTheirSpreadToTheVariance) {
    Scene scene = single_ion_scene(500);
    scene.detector.statistics = DetectorStatistics::pulse;
    for (const double spread : {0.0, 0.5, 1.0}) {
        scene.detector.pulse_height_spread = spread;
        const Moments moments = ion_moments(scene, 600);
        EXPECT_NEAR(moments.mean / 500, 1.0, 0.01) << spread;
        EXPECT_NEAR(moments.variance / (500 * (1 + spread * spread)), 1.0, 0.3) << spread;
    }
}

struct PeakMoments {
    double centre_ns = 0, sigma_ns = 0;
};

PeakMoments measured_moments(const Scene& scene, int spectra) {
    Generator generator(scene);
    double weight = 0, first = 0, second = 0;
    const double origin = generator.peak().flight_time_ns;
    for (int i = 0; i < spectra; ++i) {
        const auto counts = generator.counts();
        for (std::size_t k = 0; k < counts.size(); ++k) {
            const double t = generator.time_ns(k) - origin;
            weight += counts[k];
            first += counts[k] * t;
            second += counts[k] * t * t;
        }
    }
    const double centre = first / weight;
    return {centre, std::sqrt(second / weight - centre * centre)};
}

// Mean and spread of the arrival: the tail moves the mean by f l sigma and widens by sigma sqrt(1 + 2 f l^2 - (f l)^2).
TEST(SpectrumPhysics, PeaksHaveThePositionAndWidthOfTheModelAtEveryRateAndStatistics) {
    for (const auto statistics : {DetectorStatistics::counting, DetectorStatistics::pulse})
        for (const double rate : {1.0, 2.0, 3.0}) {
            Scene scene = single_ion_scene(20000);
            scene.detector.statistics = statistics;
            scene.setpoints["SamplingRate"] = rate;
            const double time_ns = std::sqrt(test_mz) / 4.5e-4 + 20;
            const double fwhm = std::hypot(time_ns / 80000, 1.18);
            const double sigma = fwhm / std::sqrt(8 * std::log(2.0));
            const double f = scene.peak_shape.tail_fraction, length = scene.peak_shape.tail_length_sigmas;
            const PeakMoments seen = measured_moments(scene, 60);
            EXPECT_NEAR(seen.centre_ns, sigma * (f * length - scene.peak_shape.reference_sigmas), 0.01 * sigma) << rate;
            const double widening = std::sqrt(1 + 2 * f * length * length - f * f * length * length);
            // Below 1.5 samples a width the sum over samples is a poor integral.
            EXPECT_NEAR(seen.sigma_ns / (sigma * widening), 1.0, rate == 1 ? 0.03 : 0.01) << rate;
        }
}

TEST(SpectrumPhysics, NoiseAndBaselineGrowWithTheTransients) {
    for (const double transients : {100.0, 5000.0, 50000.0}) {
        Scene scene = single_ion_scene(0);
        scene.detector = DetectorSetup{};
        scene.detector.baseline_drift = 0;
        scene.detector.baseline_counts = 1.0;
        scene.instrument.spectrum_duration_ns = 100000;
        scene.setpoints["NumTransients2GHz"] = transients;
        const Moments moments(Generator(scene).counts());
        const double variance = 0.45 * 0.45 * transients;
        EXPECT_NEAR(moments.mean / transients, 1.0, 0.02) << transients;
        EXPECT_NEAR((moments.variance - 1.0 / 12) / variance, 1.0, 0.015) << transients;
    }
}

TEST(SpectrumPhysics, NeighbouringNoiseSamplesAreIndependent) {
    Scene scene = single_ion_scene(0);
    scene.detector = DetectorSetup{};
    scene.detector.baseline_drift = 0;
    scene.instrument.spectrum_duration_ns = 100000;
    const auto counts = Generator(scene).counts();
    const Moments moments(counts);
    for (const std::size_t lag : {1u, 2u, 3u, 4u, 32u, 256u}) {
        double correlation = 0;
        for (std::size_t i = lag; i < counts.size(); ++i)
            correlation += (counts[i] - moments.mean) * (counts[i - lag] - moments.mean);
        correlation /= moments.variance * static_cast<double>(counts.size());
        EXPECT_NEAR(correlation, 0.0, 5 / std::sqrt(counts.size())) << lag;
    }
}

TEST(SpectrumPhysics, BaselineWaveStaysWithinItsAmplitudeAndMovesBetweenSpectra) {
    Scene scene = single_ion_scene(0);
    scene.detector.baseline_counts = 10;
    scene.detector.baseline_drift = 0.1;
    scene.instrument.spectrum_duration_ns = 50000;
    Generator generator(scene);
    const auto first = generator.counts(), second = generator.counts();
    EXPECT_NE(first, second);
    const auto [low, high] = std::ranges::minmax(first);
    EXPECT_NEAR(low, 45000, 50);
    EXPECT_NEAR(high, 55000, 50);
}

TEST(SpectrumPhysics, SamplesAreWholeAndClipAtFullScale) {
    for (const auto statistics : {DetectorStatistics::counting, DetectorStatistics::pulse}) {
        Scene scene = single_ion_scene(1e6);
        scene.detector = DetectorSetup{};
        scene.detector.statistics = statistics;
        const auto counts = Generator(scene).counts();
        EXPECT_EQ(std::ranges::max(counts), 255.0 * 5000);
        EXPECT_GT(std::ranges::count(counts, 255.0 * 5000), 3);
        EXPECT_TRUE(std::ranges::all_of(counts, [](double value) { return value == std::floor(value) && value >= 0; }));
    }
}

TEST(SpectrumPhysics, AbsurdAbundanceSaturatesInsteadOfOverflowing) {
    for (const auto statistics : {DetectorStatistics::counting, DetectorStatistics::pulse}) {
        Scene scene = single_ion_scene(1e7);
        scene.detector.statistics = statistics;
        scene.setpoints["MCP"] = 1000;
        scene.setpoints["NumTransients2GHz"] = 50000;
        scene.responses = {{60, ResponseTarget::gain, ResponseShape::power, 600, 1, 100, 0, {}, {}},
                           {60, ResponseTarget::ions, ResponseShape::power, 600, 1, 100, 0, {}, {}}};
        const auto counts = Generator(scene).counts();
        EXPECT_EQ(std::ranges::max(counts), 255.0 * 50000);
        EXPECT_GE(std::ranges::min(counts), 0.0);
    }
}

TEST(SpectrumPhysics, SignalIsProportionalToTheTransients) {
    Scene scene = single_ion_scene(5000);
    scene.setpoints["NumTransients2GHz"] = 1000;
    EXPECT_NEAR(ion_moments(scene, 300).mean, 1000, 10);
}

TEST(SpectrumPhysics, DeadMassesReadZeroAndNothingElseDoes) {
    Scene scene = single_ion_scene(5000);
    scene.detector = DetectorSetup{};
    scene.detector.dead_masses = {test_mz};
    Generator generator(scene);
    const auto counts = generator.counts();
    const double centre = generator.peak().flight_time_ns;
    const double sigma = peak_width(centre, 40000, 1.18).total_sigma_ns;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const double distance = std::abs(generator.time_ns(i) - centre) / sigma;
        if (distance < 5.9) {
            EXPECT_EQ(counts[i], 0.0) << i;
        }
        if (distance > 6.2) {
            EXPECT_GT(counts[i], 0.0) << i;
        }
    }
}

TEST(SpectrumPhysics, PeaksCutByTheEdgesOfTheSpectrumStayInside) {
    for (const auto statistics : {DetectorStatistics::counting, DetectorStatistics::pulse})
        for (const double offset_ns : {-3.0, -0.4, 0.0, 0.4, 3.0, 1e4})
            for (const bool at_start : {true, false}) {
                Scene scene = single_ion_scene(20000);
                scene.detector.statistics = statistics;
                const double time_ns = std::sqrt(test_mz) / 4.5e-4 + 20;
                scene.instrument.spectrum_start_ns = time_ns + offset_ns - (at_start ? 0 : 100);
                scene.instrument.spectrum_duration_ns = 100;
                Generator generator(scene);
                const double seen = sum_of(generator.counts()) / generator.conditions.counts_per_ion;
                EXPECT_LE(seen, 21000);
                if (at_start == (offset_ns < 0) && std::abs(offset_ns) < 10) {
                    EXPECT_GT(seen, 5000) << offset_ns;
                }
            }
}

TEST(SpectrumPhysics, BackgroundKeepsItsDistanceAndRange) {
    const Scene scene = default_scene();
    const SpectrumGenerator generator(scene, 11);
    for (const IonPeaks& peaks : generator.population()) {
        EXPECT_EQ(std::ranges::count_if(peaks, &IonPeak::background), 300);
        for (std::size_t i = 1; i < peaks.size(); ++i) {
            if (!peaks[i].background && !peaks[i - 1].background) continue;
            const double sigma = peak_width(peaks[i].flight_time_ns, 40000, 1.18).total_sigma_ns;
            EXPECT_GT(peaks[i].flight_time_ns - peaks[i - 1].flight_time_ns, 11.9 * sigma);
        }
    }
}

}  // namespace
}  // namespace korvane::simulation
