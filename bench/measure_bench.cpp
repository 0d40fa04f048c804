// The library's own share of one measurement: an instrument that hands over a ready spectrum of 600,000 samples at
// once, ten calibrants, against one pass that converts the samples to 32-bit integers.
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <cmath>
#include <fstream>
#include <random>
#include <string>

#include "bench/ratio.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "korvane/calibration_fit.h"
#include "korvane/embedded_parts.h"
#include "korvane/spectrum_parser.h"
#include "korvane/verdict.h"
#include "platform/automation_arithmetic.h"
#include "spectrum/search_copy.h"
#include "support/test_platform.h"

namespace korvane::bench {
namespace {

constexpr std::size_t usual_samples = 600000;
constexpr double start_ns = 10000, record_ns = 150000;
constexpr double calibration_a = 4.5e-4, calibration_b = 20;
constexpr double first_mass = 150, last_mass = 4000;

/// Evenly spaced in the root of the mass, as flight times are.
std::vector<double> calibrant_masses(int count) {
    std::vector<double> masses;
    for (int i = 0; i < count; ++i) {
        const double part = count == 1 ? 0.5 : static_cast<double>(i) / (count - 1);
        const double root = std::sqrt(first_mass) + part * (std::sqrt(last_mass) - std::sqrt(first_mass));
        masses.push_back(root * root);
    }
    return masses;
}

std::vector<double> spectrum_samples(std::size_t count, const std::vector<double>& masses) {
    std::mt19937_64 random(1);
    std::normal_distribution<double> noise(300, 14);
    std::vector<double> samples(count);
    for (double& sample : samples) sample = std::nearbyint(noise(random));
    const double interval_ns = record_ns / static_cast<double>(count);
    for (double mass : masses) {
        const double index = (std::sqrt(mass) / calibration_a + calibration_b - start_ns) / interval_ns;
        for (int offset = -20; offset <= 20; ++offset) {
            const double sigmas = (std::floor(index) + offset - index) / 2.5;
            samples[static_cast<std::size_t>(std::floor(index) + offset)] +=
                std::nearbyint(50000 * std::exp(-sigmas * sigmas / 2));
        }
    }
    return samples;
}

std::string mass_list_file(const std::vector<double>& masses) {
    std::string xml =
        "<QTOF_MassListConfiguration><Configuration IonSource=\"ESI\" IonPolarity=\"Positive\"><MassList>";
    for (double mass : masses) xml += "<mass Used=\"1\">" + number_text(mass) + "</mass>";
    return xml + "</MassList></Configuration></QTOF_MassListConfiguration>";
}

/// An instrument that hands over a ready spectrum at once, and a parser on it; made once a benchmark.
struct World {
    explicit World(std::size_t samples = usual_samples, int masses = 10) : calibrants(calibrant_masses(masses)) {
        set_up_instrument(samples);
        for (const char* name : {"TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum", "AIC_RunFastVersion",
                                 "BinarySearchLoggingEnabled", "WaitForReady_SkipAll", "WaitDialogHandlesRunStateAlso"})
            test.preference(name, "No");
        test.limit("Calibration", "AIC_SearchSpeedUpFactor", "4");
        test.limit("Calibration", "BinarySearchAbTolerance", "1");
        write_text(test.base() / "MassLists" / "default_calibration_mass_list.xml", mass_list_file(calibrants));
        test.trace().on = false;
        parser = std::make_unique<SpectrumParser>(test.platform());
    }

    void set_up_instrument(std::size_t samples) {
        const double interval_ns = record_ns / static_cast<double>(samples);
        std::vector<double> axis_masses(samples);
        for (std::size_t i = 0; i < samples; ++i) {
            const double root = calibration_a * (start_ns + static_cast<double>(i) * interval_ns - calibration_b);
            axis_masses[i] = root * root;
        }
        const VariantArray<double> axis(std::move(axis_masses)), y_data(spectrum_samples(samples, calibrants));
        const VariantArray<InstrumentValue> meta(std::vector<InstrumentValue>{0, 0});
        ScriptedState& state = test.instrument();
        for (int index : {18, 22, 69, 104, 117, 119, 127, 128, 160, 161, 162})
            state.setpoints[index].name = index == 119 ? "Polarity" : "Setpoint";
        state.setpoints[18].value = 2;
        state.setpoints[128].value = 2;
        state.setpoints[160].value = 5000;
        state.setpoints[22] = {20, 0, 4000, 1, 0.1, 4, "QuadAMU"};
        state.sampling_interval_seconds = interval_ns * 1e-9;
        CalibrationCoefficients coefficients;
        coefficients.A = calibration_a;
        coefficients.B = calibration_b;
        state.calibrations[0] = make_square_law_calibration(
            coefficients, VariantArray<std::int32_t>(std::vector<std::int32_t>(8, 0)), CalibrationSettings{});
        state.acquire = [=](AcquiredSpectrum& spectrum, int) {
            spectrum.mass_data = axis;
            spectrum.y_data = y_data;
            spectrum.meta_data = meta;
            spectrum.start_time_ns = start_ns;
        };
        state.make_finder = [] { return make_peak_finder(); };
    }

    void measure() const {
        benchmark::DoNotOptimize(parser->GetPeakInfoForCalibrantMasses(VariantArray<double>(calibrants)));
    }
    /// What a tune does between two steps: check, measure, adjust.
    void verify_measure_adjust() const {
        parser->VerifyInstrumentIsShowingValidCalibrantSpectrum();
        measure();
        parser->BinaryAdjustAbundanceDownUsingThisSetpoint(22, calibrants[3], 20000);
    }

    /// A check, a judgement of every calibrant, and a fit of the calibration to them.
    void verify_measure_fit() const {
        TuneGlobals globals(test.platform());
        const VariantArray<double> masses(calibrants);
        parser->VerifyInstrumentIsShowingValidCalibrantSpectrum();
        for (const MeasuredCalibrant& calibrant : measure_calibrants(*parser, globals, masses))
            benchmark::DoNotOptimize(verdict_of(calibrant, {}));
        benchmark::DoNotOptimize(fit_calibration(measure_calibrant_times(*parser, globals, masses, 1),
                                                 *globals.GetCurrentCalibrationObjFromDD()));
    }

    TestPlatform test;
    std::vector<double> calibrants;
    std::unique_ptr<SpectrumParser> parser;
};

void measure(benchmark::State& state, const World& world) {
    for (auto _ : state) {
        world.measure();
        world.test.layer->state->journal.clear();
    }
}
void measure_ten(benchmark::State& state) {
    measure(state, World());
}
void measure_one_mass(benchmark::State& state) {
    measure(state, World(usual_samples, 1));
}
void measure_hundred_masses(benchmark::State& state) {
    measure(state, World(usual_samples, 100));
}
void measure_100k_samples(benchmark::State& state) {
    measure(state, World(100000));
}
void measure_10m_samples(benchmark::State& state) {
    measure(state, World(10000000));
}
BENCHMARK(measure_ten);
BENCHMARK(measure_one_mass);
BENCHMARK(measure_hundred_masses);
BENCHMARK(measure_100k_samples);
BENCHMARK(measure_10m_samples);

// The signal path alone: the copy made once, the peak finder in ten windows.
void doubles_to_ten_peaks(benchmark::State& state) {
    const std::vector<double> masses = calibrant_masses(10);
    const VariantArray<double> samples(spectrum_samples(usual_samples, masses));
    const double interval_ns = record_ns / static_cast<double>(usual_samples);
    SearchCopy copy;
    for (auto _ : state) {
        copy.take(samples);
        for (double mass : masses) {
            const double time = std::sqrt(mass) / calibration_a + calibration_b;
            const auto finder = make_peak_finder();
            finder->set_sampling_interval_ns(interval_ns);
            finder->set_search_start_ns(time * 0.999);
            finder->set_search_end_ns(time * 1.001);
            finder->set_samples(copy.counts());
            const PeakListObject list = finder->run(start_ns);
            list->order(height_position, 0);
            benchmark::DoNotOptimize(list->GetPeakAttributeInfo(0, true));
        }
        copy.release();
    }
}
BENCHMARK(doubles_to_ten_peaks);

void verify_measure_adjust(benchmark::State& state) {
    const World world;
    for (auto _ : state) {
        world.verify_measure_adjust();
        world.test.layer->state->journal.clear();
    }
}
BENCHMARK(verify_measure_adjust);

void verify_measure_fit(benchmark::State& state) {
    const World world;
    for (auto _ : state) {
        world.verify_measure_fit();
        world.test.layer->state->journal.clear();
    }
}
BENCHMARK(verify_measure_fit);

// What the instrument takes for the spectra of that, at 150 ms each.
const ExternalTimes instrument_time([] {
    const World world;
    world.verify_measure_adjust();
    return std::vector<std::pair<std::string, double>>{{"instrument_time", world.test.layer->state->spectra * 150e6}};
});

void convert(benchmark::State& state, std::size_t size) {
    const std::vector<double> samples = spectrum_samples(size, calibrant_masses(10));
    std::vector<std::int32_t> counts(samples.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < samples.size(); i += 4) {
            const __m128i low = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i]));
            const __m128i high = _mm_cvtpd_epi32(_mm_loadu_pd(&samples[i + 2]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(&counts[i]), _mm_unpacklo_epi64(low, high));
        }
        benchmark::DoNotOptimize(counts.data());
        benchmark::ClobberMemory();
    }
}
void conversion_pass(benchmark::State& state) {
    convert(state, usual_samples);
}
void conversion_pass_100k(benchmark::State& state) {
    convert(state, 100000);
}
void conversion_pass_10m(benchmark::State& state) {
    convert(state, 10000000);
}
BENCHMARK(conversion_pass);
BENCHMARK(conversion_pass_100k);
BENCHMARK(conversion_pass_10m);

double status_bytes(const std::string& item) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(item + ":")) return 1024 * std::stod(line.substr(item.size() + 1));
    return 0;
}

/// The samples and the most that measuring them adds, in bytes: the peak of what is resident against what was before.
double bytes_of_measuring(std::size_t samples) {
    const World world(samples);
    const double before = status_bytes("VmRSS");
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts anew
    world.measure();
    return static_cast<double>(samples * sizeof(double)) + status_bytes("VmHWM") - before;
}

const ExternalTimes memory([] {
    bytes_of_measuring(usual_samples);  // brings in the code and what is made once
    return std::vector<std::pair<std::string, double>>{{"memory_100k", bytes_of_measuring(100000)},
                                                       {"samples_100k", 100000.0 * sizeof(double)},
                                                       {"memory_10m", bytes_of_measuring(10000000)},
                                                       {"samples_10m", 10000000.0 * sizeof(double)}};
});

const RatioRow share({"library's share of one measure (ten calibrants, 600,000 samples), in conversion passes",
                      "measure_ten", "conversion_pass", 3});
const RatioRow fit({"library's share of verify + measure + calibration fit, in conversion passes", "verify_measure_fit",
                    "conversion_pass", 3});
const RatioRow signal({"600,000 doubles to ten calibrant peaks, in conversion passes", "doubles_to_ten_peaks",
                       "conversion_pass", 1.8});
const RatioRow software({"software share of verify + measure + adjust at 150 ms a spectrum", "verify_measure_adjust",
                         "instrument_time", 0.005});
const RatioRow mass_growth({"growth: 100 masses / 1 mass", "measure_hundred_masses", "measure_one_mass", 100});
const RatioRow sample_growth({"growth: 10,000,000 samples / 100,000", "measure_10m_samples", "measure_100k_samples",
                              100});
const RatioRow bare_growth({"growth of the bare conversion pass: 10,000,000 samples / 100,000", "conversion_pass_10m",
                            "conversion_pass_100k", 0});
const RatioRow memory_of_many({"memory with 10,000,000 samples, themselves included / the samples' own size",
                               "memory_10m", "samples_10m", 3});
const RatioRow memory_of_few({"memory with 100,000 samples, themselves included / the samples' own size", "memory_100k",
                              "samples_100k", 3});

}  // namespace
}  // namespace korvane::bench
