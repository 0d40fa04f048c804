#include "reliability/soak/soak.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "reliability/troubled_client.h"

namespace korvane {

namespace {

constexpr int acquisitions_a_trouble = 1000;
constexpr int calls_a_run = 500;
constexpr double spectrum_seconds = 0.2;

std::int64_t resident_kib() {
    std::ifstream status("/proc/self/statm");
    std::int64_t total = 0, resident = 0;
    status >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

std::int64_t open_handles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace

SoakFigures soak(std::int64_t acquisitions, unsigned seed) {
    static constexpr Trouble troubles[] = {Trouble::fault,          Trouble::empty_spectrum, Trouble::silence,
                                           Trouble::wrong_polarity, Trouble::no_peaks,       Trouble::abort,
                                           Trouble::missing_file};
    std::mt19937 random(seed);
    TroubledClient client(spectrum_seconds);
    const double start = client.world.test.clock->total_seconds();
    std::int64_t next_trouble = acquisitions_a_trouble;
    SoakFigures figures;
    for (; client.acquisitions() < acquisitions; ++figures.calls) {
        if (figures.calls % calls_a_run == 0) client.renew();
        const Operation& operation = operations()[random() % operations().size()];
        const bool is_due = client.acquisitions() >= next_trouble;
        const Trouble planned = is_due ? troubles[random() % std::size(troubles)] : Trouble::none;
        // Within the calls that every operation makes, so that it is met as a rule.
        const std::string fault = client.run(operation, planned, 1 + static_cast<int>(random() % 12));
        if (client.met())
            next_trouble =
                client.acquisitions() + 1 + static_cast<std::int64_t>(random() % (2 * acquisitions_a_trouble));
        figures.troubles += client.met();
        const std::string what =
            operation.name + ", " + trouble_names[static_cast<int>(client.met() ? planned : Trouble::none)] + ": " +
            (client.error().number() ? "error " + std::to_string(client.error().number()) : "success");
        ++figures.results[what];
        if (!fault.empty() && figures.unexplained++ == 0) figures.first_unexplained = what + " " + fault;
        if (figures.handles_early == 0 && client.acquisitions() >= acquisitions / 10) {
            figures.memory_early_kib = resident_kib();
            figures.handles_early = open_handles();
        }
    }
    figures.acquisitions = client.acquisitions();
    figures.memory_late_kib = resident_kib();
    figures.handles_late = open_handles();
    figures.virtual_hours = (client.world.test.clock->total_seconds() - start) / 3600;
    return figures;
}

}  // namespace korvane
