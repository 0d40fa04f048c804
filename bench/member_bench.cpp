// The same members from C++ that bench/python/calls.py calls from Python: no argument, and eight, refused by the search
// since an abort stands.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "korvane/abort_helper.h"
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

void member_with_eight_arguments(benchmark::State& state) {
    const Platform platform = embedded_platform();
    AbortHelper(platform).TriggerAbort();
    SpectrumParser parser(platform);
    for (auto _ : state) try {
            parser.BinaryAdjustAbundanceDownUsingThisSetpoint(22, 566.89, 50000, 30, true, 0, 200, 1);
        } catch (const Error& error) {
            benchmark::DoNotOptimize(error.number());
        }
}
BENCHMARK(member_with_eight_arguments);

}  // namespace
}  // namespace korvane::bench
