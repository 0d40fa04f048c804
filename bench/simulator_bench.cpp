// What a simulated spectrum costs, in conversion passes of the same array.
#include <benchmark/benchmark.h>

#include "bench/ratio.h"
#include "instrument/simulator/spectrum_generator.h"

namespace korvane::bench {
namespace {

using namespace simulation;

void simulated_spectrum(benchmark::State& state, DetectorStatistics statistics) {
    Scene scene = default_scene();
    scene.detector.statistics = statistics;
    scene.setpoints["SamplingRate"] = 3;  // 4 GHz: 600,000 samples
    embedded::Setpoints setpoints("bench");
    setpoints.preset(scene.setpoints);
    SpectrumGenerator generator(scene, 1);
    const auto conditions = acquisition_conditions(scene, 0, setpoints);
    int number = 0;
    for (auto _ : state) benchmark::DoNotOptimize(generator.generate(number++, conditions, {10000, 1}));
}

void simulated_spectrum_counting(benchmark::State& state) {
    simulated_spectrum(state, DetectorStatistics::counting);
}
void simulated_spectrum_pulse(benchmark::State& state) {
    simulated_spectrum(state, DetectorStatistics::pulse);
}
BENCHMARK(simulated_spectrum_counting);
BENCHMARK(simulated_spectrum_pulse);

const RatioRow counting({"simulated spectrum of 600,000 samples, counting statistics, in conversion passes",
                         "simulated_spectrum_counting", "conversion_pass", 60});
const RatioRow pulse({"simulated spectrum of 600,000 samples, pulse statistics, in conversion passes",
                      "simulated_spectrum_pulse", "conversion_pass", 60});

}  // namespace
}  // namespace korvane::bench
