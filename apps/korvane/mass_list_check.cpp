#include "mass_list_check.h"

#include <fmt/format.h>

#include "number_options.h"

namespace korvane::program {

namespace {

constexpr std::size_t least_calibrants = 4;

}  // namespace

std::vector<std::string> mass_list_faults(const ListedMassList& list) {
    const std::string name = fmt::format("{}, {}", list.source, list.polarity);
    std::vector<std::string> faults;
    double previous = 0;
    for (const auto& mass : list.masses) {
        const auto number = parse_number(mass.text);
        if (!number || *number <= 0) {
            faults.push_back(fmt::format("{}: \"{}\" is not a mass", name, mass.text));
            continue;
        }
        if (*number <= previous) faults.push_back(fmt::format("{}: {} does not ascend", name, mass.text));
        previous = *number;
    }
    if (list.masses.size() < least_calibrants)
        faults.push_back(fmt::format("{}: {} masses, fewer than {}", name, list.masses.size(), least_calibrants));
    return faults;
}

}  // namespace korvane::program
