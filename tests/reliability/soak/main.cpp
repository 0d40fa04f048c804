// korvane_soak [ACQUISITIONS] [SEED]: prints the figures of a soak; 1 where memory or handles grew or a result is
// unexplained.
#include <cstdlib>
#include <iostream>

#include "reliability/soak/soak.h"

int main(int argc, char** argv) {
    const std::int64_t acquisitions = argc > 1 ? std::atoll(argv[1]) : 1000000;
    const auto seed = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 1);
    const korvane::SoakFigures figures = korvane::soak(acquisitions, seed);
    for (const auto& [what, count] : figures.results) std::cout << count << "\t" << what << "\n";
    std::cout << figures.acquisitions << " acquisitions in " << figures.calls << " calls, " << figures.virtual_hours
              << " h of the instrument; " << figures.troubles << " calls met trouble\n"
              << "unexplained results: " << figures.unexplained << " " << figures.first_unexplained << "\n"
              << "memory after a tenth: " << figures.memory_early_kib << " KiB, at the end: " << figures.memory_late_kib
              << " KiB\nhandles after a tenth: " << figures.handles_early << ", at the end: " << figures.handles_late
              << "\n";
    // The allocator may keep a little more; a leak of a single record an acquisition is many times that.
    constexpr std::int64_t allowed_growth_kib = 1024;
    const bool flat = figures.memory_late_kib - figures.memory_early_kib <= allowed_growth_kib;
    const bool constant = figures.handles_late == figures.handles_early;
    return flat && constant && figures.unexplained == 0 ? 0 : 1;
}
