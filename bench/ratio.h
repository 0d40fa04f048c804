// Ratios of two benchmarks of the same run: what the tables of docs/performance.md are made of.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace korvane::bench {

struct Ratio {
    std::string figure;     ///< what a reader of the table understands
    std::string numerator;  ///< benchmark names
    std::string denominator;
    double reach;           ///< the limit; 0 where the row only stands beside another
    bool at_least = false;  ///< the ratio is to be at least `reach` instead of at most
};

std::vector<Ratio>& ratios();

/// Adds a row when the program starts.
struct RatioRow {
    explicit RatioRow(Ratio ratio) { ratios().push_back(std::move(ratio)); }
};

/// Times in ns that are measured otherwise, by another process or in turns; asked for before the benchmarks run.
using ExternalMeasurement = std::function<std::vector<std::pair<std::string, double>>()>;
std::vector<ExternalMeasurement>& external_measurements();

struct ExternalTimes {
    explicit ExternalTimes(ExternalMeasurement measurement) {
        external_measurements().push_back(std::move(measurement));
    }
};

}  // namespace korvane::bench
