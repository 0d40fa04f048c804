// Whole-spectrum picking with full records, on the spectra of known truth; with the peers where they are built in.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>

#include "bench/ratio.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "support/synthetic_spectrum.h"
#ifdef KORVANE_PEERS
#include "bench/peers/peers.h"
#endif

namespace korvane::bench {
namespace {

struct Spectrum {
    explicit Spectrum(const SyntheticSet& set) : synthetic(synthesize(set, 1)) {
        for (std::size_t i = 0; i < synthetic.counts.size(); ++i) {
            const double time_ns = synthetic.start_time_ns + static_cast<double>(i) * synthetic.interval_ns;
            masses.push_back(std::pow(4.5e-4 * (time_ns - 20), 2));
            samples.push_back(synthetic.counts[i]);
        }
    }
    SyntheticSpectrum synthetic;
    std::vector<double> masses, samples;
};

const Spectrum& small() {
    static const Spectrum spectrum(accuracy_sets()[0]);
    return spectrum;
}

const Spectrum& large() {
    static const Spectrum spectrum(accuracy_sets()[2]);
    return spectrum;
}

void pick(benchmark::State& state, const Spectrum& spectrum) {
    const auto finder = make_peak_finder();
    std::int32_t peaks = 0;
    for (auto _ : state) {
        finder->set_sampling_interval_ns(spectrum.synthetic.interval_ns);
        finder->set_minimum_samples(3);
        finder->set_baseline_removal(1);
        finder->set_search_start_ns(0);
        finder->set_search_end_ns(std::numeric_limits<double>::max());
        finder->set_samples(spectrum.synthetic.counts);
        peaks = finder->run(spectrum.synthetic.start_time_ns)->count();
    }
    state.counters["peaks"] = peaks;
}

void pick_150k(benchmark::State& state) {
    pick(state, small());
}
void pick_600k(benchmark::State& state) {
    pick(state, large());
}
BENCHMARK(pick_150k);
BENCHMARK(pick_600k);

#ifdef KORVANE_PEERS
void openms(benchmark::State& state, const Spectrum& spectrum) {
    const OpenMsPeer peer(spectrum.masses, spectrum.samples);
    for (auto _ : state) benchmark::DoNotOptimize(peer.pick());
}
void local_maximum(benchmark::State& state, const Spectrum& spectrum) {
    for (auto _ : state) benchmark::DoNotOptimize(pick_local_maxima(spectrum.masses, spectrum.samples));
}
void openms_150k(benchmark::State& state) {
    openms(state, small());
}
void openms_600k(benchmark::State& state) {
    openms(state, large());
}
void local_maximum_150k(benchmark::State& state) {
    local_maximum(state, small());
}
void local_maximum_600k(benchmark::State& state) {
    local_maximum(state, large());
}
BENCHMARK(openms_150k);
BENCHMARK(openms_600k);
BENCHMARK(local_maximum_150k);
BENCHMARK(local_maximum_600k);

const RatioRow local_small({"libpwiz local maximum / whole-spectrum picking, 150,000 samples", "local_maximum_150k",
                            "pick_150k", 2, true});
const RatioRow local_large({"libpwiz local maximum / whole-spectrum picking, 600,000 samples", "local_maximum_600k",
                            "pick_600k", 4, true});
const RatioRow openms_small({"OpenMS PeakPickerHiRes / whole-spectrum picking, 150,000 samples", "openms_150k",
                             "pick_150k", 25, true});
const RatioRow openms_large({"OpenMS PeakPickerHiRes / whole-spectrum picking, 600,000 samples", "openms_600k",
                             "pick_600k", 50, true});
const RatioRow scipy_small({"scipy find_peaks + peak_widths / whole-spectrum picking, 150,000 samples", "scipy_150k",
                            "pick_150k", 3, true});
const RatioRow scipy_large({"scipy find_peaks + peak_widths / whole-spectrum picking, 600,000 samples", "scipy_600k",
                            "pick_600k", 6, true});

// scipy runs in its own process, on files with the same samples, before the benchmarks start.
const ExternalTimes scipy_times([] {
    std::vector<std::pair<std::string, double>> times;
    std::string command = std::string("/usr/bin/python3 ") + KORVANE_PEERS + "/scipy_peer.py";
    for (const Spectrum* spectrum : {&small(), &large()}) {
        const std::string path = "/tmp/korvane-peer-" + std::to_string(spectrum->samples.size()) + ".f64";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(spectrum->samples.data()),
                   static_cast<std::streamsize>(spectrum->samples.size() * sizeof(double)));
        command += " " + path;
    }
    if (FILE* const pipe = popen(command.c_str(), "r")) {
        double nanoseconds = 0;
        for (const char* name : {"scipy_150k", "scipy_600k"})
            if (std::fscanf(pipe, "%lf", &nanoseconds) == 1) times.emplace_back(name, nanoseconds);
        pclose(pipe);
    }
    return times;
});
#endif

}  // namespace
}  // namespace korvane::bench
