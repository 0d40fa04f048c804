// Prints the accuracy table of docs/peaks.md as Markdown; takes the number of spectra a set.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "instrument/peakfinder/accuracy_score.h"

namespace korvane {
namespace {

/// Of calibrants of 1,000 ions and more.
struct Strong {
    double worst = 0;
    double square_sum = 0;
    double bias = 0;
    int number = 0;

    void add(double over_bound, double mean) {
        worst = std::max(worst, over_bound);
        square_sum += over_bound * over_bound;
        bias = std::max(bias, std::abs(mean - 1));
        ++number;
    }
    double together() const { return std::sqrt(square_sum / number); }
};

void print_row(const SyntheticSet& set, bool knowing, SearchBy by, int spectra) {
    const bool whole = by == SearchBy::WholeSpectrum;
    const AccuracyScore total = score(set, knowing ? known_of(set) : PeakFinderOptions(), by, spectra);
    Strong width, area;
    double worst_strong = 0, worst_weak = 0;
    int missed = 0;
    for (const auto& calibrant : total.calibrants) {
        missed += calibrant.missed;
        const double position = calibrant.position_over_bound();
        if (calibrant.ions <= 100) worst_weak = std::max(worst_weak, position);
        if (calibrant.ions < 1000) continue;
        worst_strong = std::max(worst_strong, position);
        width.add(calibrant.width_over_bound(), calibrant.relative_width.mean());
        area.add(calibrant.area_over_bound(), calibrant.relative_area.mean());
    }
    std::printf("| %s | %s | %s | %.2f | %.2f | %.2f | %d |", set.name.c_str(), whole ? "whole" : "windows",
                knowing ? "known" : "none", total.geometric_mean_position(), worst_strong, worst_weak, missed);
    if (whole)
        std::printf(" %.2f | %.1f %% |", total.false_peaks, 100 * total.background_found);
    else
        std::printf(" | |");
    std::printf(" %.2f, %.2f, %.1f %% | %.2f, %.2f, %.1f %% | %.2f |\n", width.together(), width.worst,
                100 * width.bias, area.together(), area.worst, 100 * area.bias, total.stated_over_observed());
    std::fflush(stdout);
}

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
    using namespace korvane;
    const int spectra = argc > 1 ? std::atoi(argv[1]) : 100;
    if (spectra < 2) {
        std::fprintf(stderr, "usage: %s [spectra a set, at least 2]\n", argv[0]);
        return 2;
    }
    std::printf(
        "| set | search | options | geometric mean | worst, 1,000 ions up | worst, 100 ions | missed | "
        "false a spectrum | background found | width: together, worst, bias | area: together, worst, bias | "
        "stated / observed error |\n|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const auto& set : accuracy_sets()) print_row(set, true, SearchBy::WholeSpectrum, spectra);
    for (const auto& set : accuracy_sets()) print_row(set, false, SearchBy::WholeSpectrum, spectra);
    for (const auto& set : accuracy_sets()) print_row(set, false, SearchBy::Windows, spectra);
    return 0;
}
