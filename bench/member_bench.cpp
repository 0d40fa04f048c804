// The same members from C++ that bench/python/calls.py calls from Python: without arguments, and refused since there is
// no such setpoint, with one argument and with eight.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "korvane/embedded.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"

namespace korvane::bench {
namespace {

Platform embedded_platform() {
    EmbeddedOptions options;
    options.base_folder = std::filesystem::temp_directory_path() / ("korvane-members-" + std::to_string(::getpid()));
    std::filesystem::remove_all(options.base_folder);
    create_base_folder(options.base_folder);
    return make_embedded_platform(options);
}

void member_without_arguments(benchmark::State& state) {
    const Platform platform = embedded_platform();
    TuneGlobals globals(platform);
    for (auto _ : state) benchmark::DoNotOptimize(globals.CurrentTimeSegment());
}
BENCHMARK(member_without_arguments);

void refused_with_one_argument(benchmark::State& state) {
    const Platform platform = embedded_platform();
    TuneGlobals globals(platform);
    for (auto _ : state) try {
            benchmark::DoNotOptimize(globals.GetMSSetpointValueByIdx(9999));
        } catch (const Error& error) {
            benchmark::DoNotOptimize(error.number());
        }
}
BENCHMARK(refused_with_one_argument);

void refused_with_eight_arguments(benchmark::State& state) {
    const Platform platform = embedded_platform();
    SpectrumParser parser(platform);
    for (auto _ : state) try {
            parser.BinaryAdjustAbundanceDownUsingThisSetpoint(9999, 566.89, 50000, 30, true, 0, 200, 1);
        } catch (const Error& error) {
            benchmark::DoNotOptimize(error.number());
        }
}
BENCHMARK(refused_with_eight_arguments);

}  // namespace
}  // namespace korvane::bench
