// korvane_soak [ACQUISITIONS] [SEED]: a long run against an instrument that goes wrong once in a thousand spectra.
// Prints what came out of the calls and what the process held after a tenth and at the end; 1 where memory or handles
// grew or a result is unexplained.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>

#include "reliability/troubled_client.h"

namespace korvane {
namespace {

constexpr int acquisitions_a_trouble = 1000;
constexpr int calls_a_run = 500;
constexpr double spectrum_seconds = 0.2;
// In a run long enough to tell: the allocator may keep a little more; a leak of a record an acquisition is many times
// that.
constexpr std::int64_t allowed_growth_kib = 1024;

struct Holdings {
    std::int64_t memory_kib = 0, handles = 0;
};

Holdings holdings() {
    std::ifstream status("/proc/self/statm");
    std::int64_t total = 0, resident = 0;
    status >> total >> resident;
    return {resident * sysconf(_SC_PAGESIZE) / 1024,
            std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})};
}

int soak(std::int64_t acquisitions, unsigned seed) {
    std::mt19937 random(seed);
    TroubledClient client(spectrum_seconds);
    const double start = client.world.test.clock->total_seconds();
    std::map<std::string, std::int64_t> results;
    std::string first_unexplained;
    std::int64_t next_trouble = acquisitions_a_trouble, calls = 0, troubles = 0, unexplained = 0;
    Holdings early;
    for (; client.acquisitions() < acquisitions; ++calls) {
        if (calls % calls_a_run == 0) client.renew();
        const Operation& operation = operations()[random() % operations().size()];
        const bool is_due = client.acquisitions() >= next_trouble;
        const Trouble planned = is_due ? static_cast<Trouble>(random() % std::size(trouble_names)) : Trouble::none;
        // Within the calls that every operation makes, so that it is met as a rule.
        const std::string fault = client.run(operation, planned, 1 + static_cast<int>(random() % 12));
        if (client.met()) next_trouble = client.acquisitions() + 1 + random() % (2 * acquisitions_a_trouble);
        troubles += client.met();
        const std::string what =
            text_of(operation.name, ", ", trouble_names[static_cast<int>(client.met() ? planned : Trouble::none)],
                    ": error ", client.error().number());
        ++results[what];
        if (!fault.empty() && unexplained++ == 0) first_unexplained = what + " " + fault;
        if (early.handles == 0 && client.acquisitions() >= acquisitions / 10) early = holdings();
    }
    const Holdings late = holdings();
    for (const auto& [what, count] : results) std::cout << count << "\t" << what << "\n";
    std::cout << client.acquisitions() << " acquisitions in " << calls << " calls, "
              << (client.world.test.clock->total_seconds() - start) / 3600 << " h of the instrument; " << troubles
              << " calls met trouble\nunexplained results: " << unexplained << " " << first_unexplained
              << "\nmemory after a tenth: " << early.memory_kib << " KiB, at the end: " << late.memory_kib
              << " KiB\nhandles after a tenth: " << early.handles << ", at the end: " << late.handles << "\n";
    const bool flat = acquisitions < 1000000 || late.memory_kib - early.memory_kib <= allowed_growth_kib;
    return flat && late.handles == early.handles && unexplained == 0 && troubles > 3 ? 0 : 1;
}

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
    return korvane::soak(argc > 1 ? std::atoll(argv[1]) : 1000000,
                         static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : 1));
}
