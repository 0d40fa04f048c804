// What a record costs, and the charts of one metric over ten years of daily tunes with ten calibrants.
#include <benchmark/benchmark.h>

#include "korvane/control_chart.h"
#include "support/test_platform.h"

namespace korvane::bench {
namespace {

TuneRecord example_record() {
    TuneRecord record;
    record.time = "2026-11-22T08:51:49Z";
    record.setpoints.resize(40, {"FragmentTune", 175, 175});
    for (int i = 0; i < 10; ++i) {
        MeasuredCalibrant measured;
        measured.mass = 100.0 * (i + 1);
        measured.ns = measured.amu = {1, 2, 3, 4, 5, 6, 7, 8};
        measured.standard_errors = {1, 2, 3, 4, 5};
        measured.quality.emplace();
        record.calibrants.push_back({measured, {}, {}});
    }
    return record;
}

void history_record(benchmark::State& state) {
    const TemporaryFolder folder;
    const TuneRecord record = example_record();
    // As a program does it: opened, written, closed.
    for (auto _ : state) TuneHistory(folder.file("history")).add(record);
}
BENCHMARK(history_record)->UseRealTime()->Unit(benchmark::kMillisecond);

void history_chart_of_ten_years(benchmark::State& state) {
    const TemporaryFolder folder;
    TuneHistory history(folder.file("history"));
    TuneRecord record = example_record();
    record.calibrants.resize(static_cast<std::size_t>(state.range(0)));
    for (int day = 0; day < 3650; ++day) {
        for (RecordedCalibrant& calibrant : record.calibrants) calibrant.measured.ns.pkHeight = 1000 + day * 31 % 97;
        record.id = history.add(record);
    }
    for (auto _ : state) benchmark::DoNotOptimize(charts_of(history, record, {.guide = 20, .metrics = {"height"}}));
}
BENCHMARK(history_chart_of_ten_years)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace korvane::bench
