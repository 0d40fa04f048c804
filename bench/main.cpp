// Runs the benchmarks with repetitions taken in random interleaved order, and prints, after the usual report, the table
// of ratios of medians as Markdown.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/ratio.h"

namespace korvane::bench {

std::vector<Ratio>& ratios() {
    static std::vector<Ratio> all;
    return all;
}

std::vector<ExternalMeasurement>& external_measurements() {
    static std::vector<ExternalMeasurement> all;
    return all;
}

namespace {

class MedianReporter final : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times_[run.run_name.function_name].push_back(run.GetAdjustedCPUTime());
        ConsoleReporter::ReportRuns(runs);
    }

    void add(const std::string& name, double nanoseconds) { times_[name] = {nanoseconds}; }

    /// Nanoseconds, or a negative number where the benchmark did not run.
    double median(const std::string& name) const {
        const auto known = times_.find(name);
        if (known == times_.end()) return -1;
        std::vector<double> sorted = known->second;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> times_;
};

void print_table(const MedianReporter& reporter) {
    std::printf("\n| figure | measured | reach | |\n|---|---|---|---|\n");
    for (const Ratio& row : ratios()) {
        const double top = reporter.median(row.numerator), bottom = reporter.median(row.denominator);
        if (top < 0 || bottom <= 0) continue;
        const double ratio = top / bottom;
        if (row.reach == 0) {
            std::printf("| %s | %.3g | | |\n", row.figure.c_str(), ratio);
            continue;
        }
        const bool reached = row.at_least ? ratio >= row.reach : ratio <= row.reach;
        std::printf("| %s | %.3g | %s %g | %s |\n", row.figure.c_str(), ratio, row.at_least ? ">=" : "<=", row.reach,
                    reached ? "reached" : "not reached");
    }
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, {"--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
                                             "--benchmark_min_time=0.1", "--benchmark_color=false"});
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;
    korvane::bench::MedianReporter reporter;
    for (const auto& measurement : korvane::bench::external_measurements())
        for (const auto& [name, nanoseconds] : measurement()) reporter.add(name, nanoseconds);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    korvane::bench::print_table(reporter);
    return 0;
}
