// The frame's price: the abort poll against bare pugixml, a traced routine with tracing off against the same without.
#include <benchmark/benchmark.h>

#include <pugixml.hpp>

#include "bench/interleaved.h"
#include "frame/routine.h"
#include "korvane/abort_helper.h"
#include "support/test_platform.h"

namespace korvane::bench {
namespace {

void abort_poll(benchmark::State& state) {
    TestPlatform test;
    test.trace().on = false;
    AbortHelper helper(test.platform());
    for (auto _ : state) benchmark::DoNotOptimize(helper.UserHasClickedAbort());
}
BENCHMARK(abort_poll);

void abort_poll_bare(benchmark::State& state) {
    TestPlatform test;
    const std::string path = (test.base() / "TunePreferences.xml").string();
    pugi::xml_document document;
    for (auto _ : state) {
        document.load_file(path.c_str());
        benchmark::DoNotOptimize(
            document.select_node("/TunePreferences").node().select_node("AbortFlag").node().text().get());
    }
}
BENCHMARK(abort_poll_bare);

// A routine of ordinary size: a setpoint read from a table and turned into text, with its entry, a line and its errors.
[[gnu::noinline]] std::string work(const std::vector<double>& table, int index) {
    std::string text;
    append_text(text, "Current value of SP[", index, "] = ", table[static_cast<std::size_t>(index)]);
    return text;
}

[[gnu::noinline]] std::string untraced_work(const std::vector<double>& table, int index) {
    return work(table, index);
}

[[gnu::noinline]] std::string traced_work(const Trace& trace, const std::vector<double>& table, int index) {
    return routine(trace, {"GetMSSetpointValueByIdx"}, [&](TraceObj& record) {
        record.TR_PRINT("reading setpoint ", index);
        return work(table, index);
    });
}

const ExternalTimes routine_times([] {
    const std::vector<double> table{1.5, 2.25, 3.125, 4};
    const auto tracers = std::make_shared<RecordingTracerFactory>();
    tracers->record->on = false;
    const Trace trace(tracers);
    int traced_index = 0, untraced_index = 0;
    return interleaved(
        "routine_traced", [&] { benchmark::DoNotOptimize(traced_work(trace, table, ++traced_index & 3)); },
        "routine_untraced", [&] { benchmark::DoNotOptimize(untraced_work(table, ++untraced_index & 3)); }, 1000);
});

const RatioRow poll({"abort poll / reading and parsing the file with bare pugixml", "abort_poll", "abort_poll_bare",
                     1.3});
const RatioRow traced({"traced routine with tracing off / the same without trace", "routine_traced", "routine_untraced",
                       1.02});

}  // namespace
}  // namespace korvane::bench
