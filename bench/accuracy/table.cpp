// Prints the accuracy table of docs/peaks.md as Markdown; takes the number of spectra a set.
#include <cstdio>
#include <cstdlib>

#include "instrument/peakfinder/accuracy.h"

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
    std::vector<std::array<Figures, 3>> figures;
    for (const auto& set : accuracy_sets()) figures.push_back(accuracy_of(set, spectra));
    constexpr const char* searches[] = {"whole | known", "whole | none", "windows | none"};
    for (std::size_t search = 0; search < 3; ++search) {
        for (std::size_t set = 0; set < figures.size(); ++set) {
            const Figures& row = figures[set][search];
            std::printf("| %s | %s | %.2f | %.2f | %.2f | %.0f |", accuracy_sets()[set].name.c_str(), searches[search],
                        row[0], row[1], row[2], row[3]);
            if (search < 2)
                std::printf(" %.2f | %.1f %% |", row[4], 100 * row[5]);
            else
                std::printf(" | |");
            for (const std::size_t first : {6, 9})
                std::printf(" %.2f, %.2f, %.1f %% |", row[first], row[first + 1], 100 * row[first + 2]);
            std::printf(" %.2f |\n", row[12]);
        }
    }
    return 0;
}
