// Prints the table of conditions of docs/peaks.md as Markdown; takes the number of spectra a condition and the first
// seed.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/accuracy/conditions.h"

int main(int argc, char** argv) {
    using namespace korvane;
    const int spectra = argc > 1 ? std::atoi(argv[1]) : 20;
    const auto seed = static_cast<std::uint64_t>(argc > 2 ? std::atoll(argv[2]) : 1);
    if (spectra < 1) {
        std::fprintf(stderr, "usage: %s [spectra a condition] [first seed] [part of a condition's name]\n", argv[0]);
        return 2;
    }
    std::printf(
        "| condition | options | found | false a spectrum | spread / bound | stated / observed | width | height | "
        "flagged as clipped | ms |\n|---|---|---|---|---|---|---|---|---|---|\n");
    for (const auto& condition : conditions()) {
        if (argc > 3 && !std::strstr(condition.name.c_str(), argv[3])) continue;
        const ConditionScore score = score_of(condition, seed, spectra);
        std::printf("| %s | %s | %.1f %% | %.2f | %.2f | %.2f | %+.1f %% | %+.1f %% | %.0f %% | %.2f |\n",
                    condition.name.c_str(), condition.knowing ? "known" : "none", 100 * score.found, score.false_peaks,
                    score.spread, score.stated, 100 * (score.width - 1), 100 * (score.height - 1), 100 * score.flagged,
                    score.milliseconds);
        std::fflush(stdout);
    }
    return 0;
}
