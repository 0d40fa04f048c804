// The default scene measured with the embedded peak finder and the calibration that the instrument lends.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "instrument/simulator/isotope_pattern.h"
#include "instrument/simulator/scene.h"
#include "instrument/simulator/simulator_bench.h"

namespace korvane {
namespace {

PeakListObject peaks_about(SimulatorBench& bench, const AcquiredSpectrum& spectrum, double time_ns) {
    const auto values = spectrum.y_data.elements();
    const std::vector<std::int32_t> counts(values.begin(), values.end());
    const auto finder = bench.layer->create_peak_finder();
    finder->set_sampling_interval_ns(bench.globals->sampling_interval_seconds() * 1e9);
    finder->set_minimum_samples(3);
    finder->set_baseline_removal(1);
    finder->set_search_start_ns(0.999 * time_ns);
    finder->set_search_end_ns(1.001 * time_ns);
    finder->set_samples(counts);
    return finder->run(spectrum.start_time_ns);
}

PeakInfo tallest_peak(SimulatorBench& bench, const AcquiredSpectrum& spectrum, double mz, std::int32_t polarity) {
    const auto calibration = bench.globals->calibrations().calibration(polarity);
    const PeakListObject peaks = peaks_about(bench, spectrum, calibration->time_from_mass(mz));
    if (!peaks || peaks->count() == 0) return {};
    peaks->order(height_position, 0);
    peaks->convert(*calibration, convert_to_amu_mode);
    return peaks->GetPeakAttributeInfo(0, true);
}

TEST(Measurement, EveryCalibrantReadsItsMassFarAboveTheAcceptableAbundance) {
    SimulatorBench bench;
    for (const double rate : {1.0, 2.0, 3.0})
        for (const std::int32_t polarity : {0, 1}) {
            bench.set("SamplingRate", rate);
            bench.set("Polarity", polarity);
            const auto spectrum = bench.acquire();
            for (const simulation::SceneIon& ion : simulation::default_scene().sample.ions) {
                if ((ion.charge > 0) != (polarity == 0)) continue;
                const auto pattern =
                    simulation::isotope_pattern(simulation::parse_formula(ion.formula), ion.charge, 0.01);
                const double mz = pattern.front().mz;
                const PeakInfo peak = tallest_peak(bench, spectrum, mz, polarity);
                EXPECT_NEAR((peak.pkCentroid - mz) / mz * 1e6, 0.0, 5.0) << ion.formula << " at rate code " << rate;
                EXPECT_GT(peak.pkHeight, 6000) << ion.formula;
                EXPECT_LT(peak.pkHeight, 0.5 * 255 * 5000) << ion.formula;
            }
        }
}

TEST(Measurement, ResolutionIsThatOfTheModel) {
    SimulatorBench bench;
    const auto spectrum = bench.acquire();
    EXPECT_NEAR(tallest_peak(bench, spectrum, 158.9640, 0).pkResolution / 11200, 1.0, 0.12);
    EXPECT_NEAR(tallest_peak(bench, spectrum, 1382.7373, 0).pkResolution / 26300, 1.0, 0.15);
}

// Two strong calibrants, one whose width is the detector's and one whose width is the analyser's.
std::string two_peak_scene(const std::string& statistics) {
    return R"({"instrument": {"random_phase": true, "spectrum_duration_ns": 110000},
        "peak_shape": {"detector_width_ns": 0.9, "reference_sigmas": 0},
        "detector": {"statistics": ")" +
           statistics + R"("}, "background": {"count": 0}, "setpoints": {"SamplingRate": 3},
        "sample": {"ions": [{"mz": 172.88346298, "ions": 5000}, {"mz": 2421.29709718, "ions": 5000}]}})";
}

TEST(Measurement, WidthAndStatedErrorsAreThoseOfTheScene) {
    // 8 % of the ions late by 1.5 standard deviations make a peak so much wider.
    constexpr double widened = 1.0184;
    constexpr int spectra = 80;
    constexpr std::array<double, 2> masses{172.88346298, 2421.29709718};
    for (const char* statistics : {"counting", "pulse"}) {
        SimulatorBench bench(two_peak_scene(statistics));
        const auto calibration = bench.globals->calibrations().calibration(0);
        std::array<std::vector<double>, 2> places, widths, stated_variances;
        for (int i = 0; i < spectra; ++i) {
            const auto spectrum = bench.acquire();
            for (std::size_t k = 0; k < masses.size(); ++k) {
                const auto peaks = peaks_about(bench, spectrum, calibration->time_from_mass(masses[k]));
                ASSERT_EQ(peaks->count(), 1);
                places[k].push_back(peaks->GetPeakAttributeInfo(0, true).pkCentroid);
                widths[k].push_back(peaks->GetPeakAttributeInfo(0, true).pkWidth);
                stated_variances[k].push_back(std::pow(peaks->uncertainty(0)->centroid, 2));
            }
        }
        for (std::size_t k = 0; k < masses.size(); ++k) {
            SCOPED_TRACE(statistics + (" " + std::to_string(masses[k])));
            const double fwhm_ns = widened * std::hypot(calibration->time_from_mass(masses[k]) / 80000, 0.9);
            EXPECT_NEAR(Moments(widths[k]).mean / fwhm_ns, 1, 0.01);
            EXPECT_NEAR(std::sqrt(Moments(stated_variances[k]).mean / Moments(places[k]).variance), 1, 0.25);
        }
    }
}

TEST(Measurement, MassesDriftAsTheSceneSays) {
    SimulatorBench bench(R"({"flight": {"mass_drift_ppm_per_minute": 20}})");
    for (int i = 0; i < 150; ++i) bench.metadata("Polarity");  // 150 x 5000 / 6200 s = 2.0161 minutes
    const PeakInfo peak = tallest_peak(bench, bench.acquire(), 1110.7877, 0);
    EXPECT_NEAR((peak.pkCentroid - 1110.7877) / 1110.7877 * 1e6, 40.32, 4.0);
}

TEST(Measurement, TheMassAxisIsSharedWhileNothingChanges) {
    SimulatorBench bench;
    const auto first = bench.acquire(), second = bench.acquire();
    EXPECT_EQ(first.mass_data.storage(), second.mass_data.storage());
    EXPECT_NE(first.y_data.storage(), second.y_data.storage());
    bench.set("SamplingRate", 1);
    const auto third = bench.acquire();
    EXPECT_EQ(third.mass_data.size(), 150000u);
    EXPECT_EQ(third.y_data.size(), 150000u);
    const auto calibration = bench.globals->calibrations().calibration(0);
    EXPECT_EQ(third.mass_data.at(777), calibration->mass_from_time(10777.0));
}

}  // namespace
}  // namespace korvane
